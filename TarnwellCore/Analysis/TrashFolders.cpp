#include "TarnwellCore/Analysis/TrashFolders.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/TimeLimitedCalls.hpp"
#include "TarnwellCore/Platform/Trash.hpp"
#include "TarnwellCore/Platform/Volumes.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <string>
#include <string_view>
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

/// The path of a Trash folder below its volume. Volumes' Trash folders have names that tell them from a
/// home's.
std::optional<std::string> pathBelowVolume(const fs::path& folder) {
    const std::string_view text = PathUtil::withoutTrailingSlashes(folder.native());
    for (const fs::path& each : volumeTrashDirectories("", ::getuid())) {
        const std::string_view end = PathUtil::withoutTrailingSlashes(each.native());
        if (text.size() > end.size() && text.ends_with(end) && text[text.size() - end.size() - 1] == '/')
            return std::string(end);
    }
    return std::nullopt;
}

/// Below the volume, on its device.
int openBelowVolume(const std::string& volume, const std::string& path) {
    const int base = FolderOpeningDetail::openForTraversal(AT_FDCWD, volume.c_str());
    if (base < 0)
        return -1;
    struct stat status = {};
    int opened = -1;
    if (::fstat(base, &status) == 0) {
        const std::int32_t device = entryFromStatus(status).deviceID;
        opened = openFolderBelow(base, path, &device);
    }
    const int error = errno;
    ::close(base);
    errno = error;
    return opened;
}

bool isThereNow(const fs::path& folder) {
    if (pathBelowVolume(folder))
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

int openOwn(const fs::path& folder) {
    const std::string path(PathUtil::withoutTrailingSlashes(folder.native()));
    const auto below = pathBelowVolume(folder);
    if (below && !isUsersTrash(folder, ::geteuid())) {
        errno = EPERM;
        return -1;
    }
    const int opened = below ? openBelowVolume(path.substr(0, path.size() - below->size()), *below)
                             : ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (opened < 0)
        return -1;
    struct stat status = {};
    if (::fstat(opened, &status) == 0 && status.st_uid == ::geteuid())
        return opened;
    ::close(opened);
    errno = EPERM;
    return -1;
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
