#include "TarnwellTidyKit/Commands/TidyServices.hpp"

#include "TarnwellCore/Actions/EvictionService.hpp"
#include "TarnwellCore/Actions/TrashEmptying.hpp"
#include "TarnwellCore/Actions/TrashService.hpp"
#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/FileBrowser.hpp"
#include "TarnwellCore/Platform/OwnProgram.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// Where a shell would find the tool; nothing when it would not. A name with a "/" is a path.
std::optional<std::string> toolOnPath(const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos)
        return name.empty() ? std::nullopt : std::optional(name);
    const char* variable = std::getenv("PATH");
    std::string_view folders = variable == nullptr ? std::string_view("/usr/bin:/bin") : variable;
    while (!folders.empty()) {
        const auto end = folders.find(':');
        const std::string_view folder = folders.substr(0, end);
        folders = end == std::string_view::npos ? std::string_view() : folders.substr(end + 1);
        if (!folder.starts_with('/')) // the working folder is nobody's business
            continue;
        std::string tool = std::string(folder) + "/" + name;
        std::error_code ignored;
        if (fs::is_regular_file(tool, ignored) && ::access(tool.c_str(), X_OK) == 0)
            return tool;
    }
    return std::nullopt;
}

std::optional<CommandResult> runToolOnPath(const std::vector<std::string>& words) {
    const auto tool = words.empty() ? std::nullopt : toolOnPath(words.front());
    if (!tool)
        return std::nullopt;
    return Shell::run(*tool, {words.begin() + 1, words.end()}, std::numeric_limits<double>::infinity());
}

EmptyTrashOutcome emptyTheTrash(const fs::path& home, const CancellationToken& token) {
    constexpr double patience = 600; // seconds; the Finder deletes millions of files in that
    std::error_code error;
    if (fs::exists("/usr/bin/osascript", error))
        return TrashService(home).emptyTrash(patience).get();
    return emptyTrashFolders(SpaceSaverProbe::liveTrashFolders(home), token);
}

std::optional<FileVersion> versionOf(const fs::path& file) {
    const auto measured = measureFile(AT_FDCWD, file.c_str());
    if (!measured || measured->kind != VnodeType::regular)
        return std::nullopt;
    return measured->version;
}

EvictionOutcome evictOne(const fs::path& file, const std::vector<SyncedRoot>& roots) {
    return EvictionService::live().evict({file}, roots).get().front();
}

ScheduledJobPlan planOfSchedule(const std::vector<std::string>& arguments) {
    const auto program = ownProgram();
    if (!program)
        throw std::runtime_error("Where this program lies cannot be told, so nothing can start it.");
    return planForThisSystem(snapshotScheduleJob(program->string(), arguments));
}

} // namespace

const TidyServices& TidyServices::live() {
    static const TidyServices services{
        .now = currentDate,
        .home = homeDirectory,
        .settings = [] { return UserDefaults::standard(); },
        .diskAccess = [] { return FullDiskAccess::status(); },
        .volumes = [] { return DiskInfo::mountedVolumes(false); },
        .volumeContaining = [](const fs::path& path) { return DiskInfo::volumeContaining(path); },
        .watchVolumes =
            [](double interval) {
                return std::make_unique<SpaceMonitor>(interval, SpaceMonitor::AllVolumes{}, true);
            },
        .scan =
            [](const fs::path& folder, ScanOptions options, DiskScanner::ProgressHandler progress,
               CancellationToken token) {
                return DiskScanner().scan(folder, std::move(options), std::move(progress), std::move(token));
            },
        .ledger =
            [](const ScanResult& scan, const CancellationToken& token) {
                return makeVolumeLedger(scan, LedgerServices::live(), token);
            },
        .findings =
            [](const fs::path& home, SpaceSaverProbe::Request request, CancellationToken token) {
                return SpaceSaverProbe(home).run(std::move(request), std::move(token));
            },
        .findDuplicates =
            [](std::vector<std::shared_ptr<const FileNode>> roots, DuplicateOptions options,
               DuplicateFinder::ProgressHandler progress, CancellationToken token) {
                return DuplicateFinder().find(std::move(roots), options, std::move(progress),
                                              std::move(token));
            },
        .fileVersion = versionOf,
        .snapshotStore = [] { return std::make_unique<SnapshotStore>(); },
        .history = [] { return ScanHistory(); },
        .planTrash =
            [](std::vector<fs::path> items) {
                return TrashService(homeDirectory()).planMoves(std::move(items));
            },
        .listTrash = [] { return TrashRestorer(homeDirectory()).list().get(); },
        .restore =
            [](const std::vector<fs::path>& places, const CancellationToken& token) {
                return TrashRestorer(homeDirectory()).restore(places, token).get();
            },
        .restoreSet = [](const UUID& set) { return TrashRestorer(homeDirectory()).restoreSet(set).get(); },
        .uninstaller = [](const fs::path& home) { return Uninstaller(home); },
        .wayOutOf = tarnwell::wayOutOf,
        .removeForGood = PermanentRemoval::remove,
        .shareBlocks =
            [](SharingRequest request, CancellationToken token) {
                return BlockSharing().share(std::move(request), nullptr, std::move(token));
            },
        .trashSummary = [](const fs::path& home) { return TrashService(home).summary(DiskScanner()).get(); },
        .emptyTrash = emptyTheTrash,
        .syncedRoots = [](const fs::path& home) { return SyncedRoots::discover(home); },
        .evict = evictOne,
        .runTool = runToolOnPath,
        .reveal = [](const fs::path& item) { return revealItem(item); },
        .open = [](const fs::path& item) { return openItem(item); },
        .writeFile = [](const fs::path& file,
                        std::string_view contents) { replaceFileDurably(file, contents); },
        .schedulePlan = planOfSchedule,
        .scheduleInstaller = ScheduleInstaller::live(),
    };
    return services;
}

} // namespace tarnwell
