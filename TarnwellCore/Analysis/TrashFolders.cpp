#include "TarnwellCore/Analysis/TrashFolders.hpp"

#include "TarnwellCore/Platform/TimeLimitedCalls.hpp"
#include "TarnwellCore/Platform/Trash.hpp"
#include "TarnwellCore/Platform/Volumes.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell::TrashFolders {

namespace {

/// A server that answers, but brings a measurement no further for so long, will not do so any more.
constexpr auto measuringPatience = std::chrono::seconds(30);

/// What `call` says of a path, which must own all it needs; nothing when the file system does not answer in
/// time.
template <class Result>
std::optional<Result> inLimitedTime(const fs::path& path, std::function<Result()> call) {
    if (!mayNeverAnswer(path.native()))
        return call();
    static auto& limitedCalls = *new TimeLimitedCalls<Result>; // for threads that outlive statics
    return limitedCalls.get(path.native(), volumeAnswerLimit,
                            [call = std::move(call)]() -> std::optional<Result> {
                                try {
                                    return call();
                                } catch (const std::exception&) {
                                    return std::nullopt; // no memory
                                }
                            });
}

/// Volumes' Trash folders have names that tell them from a home's.
bool isOnVolume(const fs::path& folder) {
    const std::vector<fs::path> pattern = volumeTrashDirectories("", ::getuid());
    const std::string& text = folder.native();
    for (const fs::path& each : pattern) {
        std::string_view end = each.native();
        end.remove_suffix(end.ends_with('/') && !text.ends_with('/') ? 1 : 0);
        if (text.size() > end.size() && text.ends_with(end) && text[text.size() - end.size() - 1] == '/')
            return true;
    }
    return false;
}

bool isThereNow(const fs::path& folder) {
    if (isOnVolume(folder))
        return isUsersTrash(folder, ::getuid());
    std::error_code ignored;
    return fs::exists(folder, ignored);
}

std::optional<std::int64_t> entryCount(const fs::path& folder) {
    std::error_code error;
    std::int64_t count = 0;
    fs::directory_iterator entry(folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error))
        if (entry->path().filename() != ".DS_Store")
            ++count;
    return error ? std::nullopt : std::optional(count);
}

/// `noteProgress` is called now and then with the number of entries so far.
Contents measure(const fs::path& folder, const DiskScanner& scanner, const CancellationToken& token,
                 const std::function<void(std::int64_t)>& noteProgress) {
    using State = Contents::State;
    Contents contents;
    if (!isThereNow(folder))
        return contents;
    DiskScanner::ProgressHandler handler;
    if (noteProgress)
        handler = [&](const ScanProgress& progress) {
            noteProgress(progress.fileCount + progress.directoryCount);
        };
    try {
        contents.measurement = scanner.measure(folder, ScanOptions(), token, handler).get();
    } catch (const ScanError& error) {
        if (error.kind() == ScanError::Kind::cancelled)
            throw;
        contents.state = State::unreadable;
        return contents;
    }
    contents.itemCount = entryCount(folder).value_or(0);
    // Looked at again: what was put in its place meanwhile is not the user's Trash.
    if (contents.measurement.isMissing || !isThereNow(folder))
        return {};
    contents.state = State::measured;
    return contents;
}

} // namespace

bool answers(const fs::path& folder) {
    return inLimitedTime<bool>(folder,
                               [folder] {
                                   struct statvfs figures = {};
                                   ::statvfs(folder.c_str(), &figures);
                                   return true; // whatever it said
                               })
        .value_or(false);
}

fs::path ofHome(const fs::path& home) {
    return inLimitedTime<fs::path>(home, [home] { return homeTrashDirectory(home); })
        .value_or(home / ".Trash");
}

std::vector<fs::path> onVolumes() {
    std::vector<fs::path> folders;
    for (const VolumeInfo& volume : DiskInfo::mountedVolumes(false)) {
        if (volume.isRootVolume)
            continue;
        for (fs::path& folder : volumeTrashDirectories(volume.url, ::getuid()))
            if (isThere(folder).value_or(true))
                folders.push_back(std::move(folder));
    }
    return folders;
}

std::optional<bool> isThere(const fs::path& folder) {
    return inLimitedTime<bool>(folder, [folder] { return isThereNow(folder); });
}

Contents contents(const fs::path& folder, const DiskScanner& scanner, const CancellationToken& token) {
    if (!mayNeverAnswer(folder.native()))
        return measure(folder, scanner, token, nullptr);
    const Contents unanswered{.state = Contents::State::unanswered};
    if (!answers(folder))
        return unanswered;

    struct Shared {
        std::promise<Contents> answer;
        std::atomic<std::int64_t> entries = 0;
        CancellationToken cancellation;
    };
    const auto shared = std::make_shared<Shared>();
    std::future<Contents> answer = shared->answer.get_future();
    const auto registration = token.onCancel([shared] { shared->cancellation.cancel(); });
    try {
        std::thread([folder, scanner, shared] {
            try {
                shared->answer.set_value(
                    measure(folder, scanner, shared->cancellation,
                            [shared](std::int64_t entries) { shared->entries = entries; }));
            } catch (...) {
                shared->answer.set_exception(std::current_exception());
            }
        }).detach();
    } catch (const std::system_error&) {
        return unanswered; // no thread that could be left waiting
    }
    std::int64_t seen = 0;
    auto lastProgress = std::chrono::steady_clock::now();
    while (answer.wait_for(volumeAnswerLimit) != std::future_status::ready) {
        if (const std::int64_t entries = shared->entries; entries != seen) {
            seen = entries;
            lastProgress = std::chrono::steady_clock::now();
        }
        if (!answers(folder) || std::chrono::steady_clock::now() - lastProgress > measuringPatience) {
            shared->cancellation.cancel();
            if (token.isCancelled())
                throw ScanError::cancelled();
            return unanswered;
        }
    }
    return answer.get();
}

std::optional<std::int64_t> itemCount(const fs::path& folder) {
    using Count = std::optional<std::int64_t>;
    return inLimitedTime<Count>(folder, [folder] { return entryCount(folder); }).value_or(std::nullopt);
}

} // namespace tarnwell::TrashFolders
