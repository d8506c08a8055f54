#include "TarnwellCore/Actions/TrashService.hpp"

#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/Trash.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Text/Trim.hpp"

#include <unistd.h>

#include <exception>
#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr std::string_view emptyingTool = "/usr/bin/osascript";
constexpr std::string_view emptyingScript = "tell application \"Finder\" to empty trash";
constexpr double emptyingGracePeriod = 2.0;

/// The item's path without the directory marks at its end, with which a link would lead to its target.
fs::path withoutTrailingSlashes(const fs::path& url) {
    std::string text = url.string();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

std::optional<fs::path> moveToPlatformTrash(const fs::path& url) {
    const fs::path item = withoutTrailingSlashes(url);
    if (item.empty())
        throw std::runtime_error(std::generic_category().message(ENOENT));
    if (item.native().find('\0') != std::string::npos) // the platform would see another, shorter path
        throw std::runtime_error(std::generic_category().message(EINVAL));
    auto landed = moveItemToTrash(item);
    if (!landed)
        throw std::runtime_error(landed.error());
    return *std::move(landed);
}

std::vector<fs::path> existingVolumeTrashes() {
    const uid_t user = ::getuid();
    std::vector<fs::path> trashes;
    for (const VolumeInfo& volume : DiskInfo::mountedVolumes(false)) {
        if (volume.isRootVolume)
            continue;
        for (fs::path& trash : volumeTrashDirectories(volume.url, user)) {
            std::error_code ignored;
            if (fs::exists(trash, ignored))
                trashes.push_back(std::move(trash));
        }
    }
    return trashes;
}

/// Moves the item that the outcome is for and completes the outcome.
void moveOne(const TrashService& service, TrashOutcome& outcome) noexcept {
    // Short enough to need no memory, as there may be none.
    constexpr const char* outOfMemory = "Out of memory.";
    try {
        outcome.trashedTo = service.trashItem(outcome.source);
    } catch (const std::bad_alloc&) {
        outcome.failure = outOfMemory;
    } catch (const std::exception& error) {
        try {
            outcome.failure = error.what();
        } catch (const std::bad_alloc&) {
            outcome.failure = outOfMemory;
        }
    } catch (...) {
        outcome.failure = "The item could not be moved to the Trash.";
    }
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

EmptyTrashOutcome outcomeOf(const std::optional<CommandResult>& result) {
    if (!result)
        return EmptyTrashFailed{"Could not run " + std::string(emptyingTool) + "."};
    if (result->succeeded())
        return EmptyTrashEmptied{};
    if (result->exitCode == Shell::timedOutExitCode)
        return EmptyTrashTimedOut{};
    if (const std::string_view message = trimmed(result->standardError); !message.empty())
        return EmptyTrashFailed{std::string(message)};
    return EmptyTrashFailed{"osascript exited with code " + std::to_string(result->exitCode) + "."};
}

} // namespace

TrashService::TrashService(fs::path home)
    : home_(std::move(home)),
      volumeTrashURLsProvider(existingVolumeTrashes),
      trashItem(moveToPlatformTrash),
      runTool(Shell::runAsync) {}

std::future<std::vector<TrashOutcome>> TrashService::moveToTrash(std::vector<fs::path> urls) const {
    // All that takes memory comes before the first move: what was moved is never lost sight of.
    std::vector<TrashOutcome> outcomes;
    outcomes.reserve(urls.size());
    for (fs::path& url : urls)
        outcomes.push_back({std::move(url), std::nullopt, std::nullopt});
    return runInBackground([service = *this, outcomes = std::move(outcomes)]() mutable {
        for (TrashOutcome& outcome : outcomes)
            moveOne(service, outcome);
        return std::move(outcomes);
    });
}

std::future<TrashOutcome> TrashService::moveToTrash(fs::path url) const {
    return runInBackground([service = *this, outcome = TrashOutcome{std::move(url), {}, {}}]() mutable {
        moveOne(service, outcome);
        return std::move(outcome);
    });
}

std::future<EmptyTrashOutcome> TrashService::emptyTrash(double timeout) const {
    return runInBackground([runTool = runTool, timeout] {
        std::optional<CommandResult> result;
        try {
            result = runTool(std::string(emptyingTool), {"-e", std::string(emptyingScript)}, timeout,
                             emptyingGracePeriod)
                         .get();
        } catch (...) {
            result.reset(); // A runner that breaks did not run the tool.
        }
        return outcomeOf(result);
    });
}

std::optional<std::int64_t> TrashService::itemCount() const {
    return entryCount(homeTrashDirectory(home_));
}

std::future<TrashSummary> TrashService::summary(DiskScanner scanner) const {
    return runInBackground([service = *this, scanner] {
        std::vector<fs::path> candidates{homeTrashDirectory(service.home())};
        const std::vector<fs::path> others = service.volumeTrashURLs();
        candidates.insert(candidates.end(), others.begin(), others.end());

        TrashSummary summary;
        for (const fs::path& location : candidates) {
            std::error_code ignored;
            if (!fs::exists(location, ignored))
                continue;
            DirectoryMeasurement measurement;
            try {
                measurement = scanner.measure(location).get();
            } catch (const std::exception&) {
                continue; // Not readable: nothing can be said about it.
            }
            if (measurement.isMissing)
                continue; // Gone since it was looked for.
            summary.locations.push_back(location);
            addChecked(summary.itemCount, entryCount(location).value_or(0));
            addChecked(summary.size, measurement.logicalSize);
            addChecked(summary.allocatedSize, measurement.allocatedSize);
            addChecked(summary.reclaimableSize, measurement.reclaimableSize);
        }
        return summary;
    });
}

} // namespace tarnwell
