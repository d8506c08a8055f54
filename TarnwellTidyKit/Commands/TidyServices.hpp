#pragma once

// Everything that commands and the browser do to the machine, as replaceable functions.

#include "TarnwellCore/Actions/BlockSharing.hpp"
#include "TarnwellCore/Actions/EmptyTrashOutcome.hpp"
#include "TarnwellCore/Actions/EvictionOutcome.hpp"
#include "TarnwellCore/Actions/PermanentRemoval.hpp"
#include "TarnwellCore/Actions/SyncedRoots.hpp"
#include "TarnwellCore/Actions/TrashOutcome.hpp"
#include "TarnwellCore/Actions/TrashRestorer.hpp"
#include "TarnwellCore/Actions/TrashService.hpp"
#include "TarnwellCore/Actions/TrashSummary.hpp"
#include "TarnwellCore/Actions/Uninstaller.hpp"
#include "TarnwellCore/Analysis/CommandResult.hpp"
#include "TarnwellCore/Analysis/DuplicateFinder.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Analysis/VolumeLedger.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/Trash.hpp"
#include "TarnwellCore/Platform/UserDefaults.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/SpaceMonitor.hpp"
#include "TarnwellCore/Scanning/VolumeInfo.hpp"
#include "TarnwellCore/Settings/FullDiskAccess.hpp"
#include "TarnwellCore/Snapshots/ScanHistory.hpp"
#include "TarnwellCore/Snapshots/ScheduleInstaller.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Functions that fail throw a std::exception whose `what()` is the description for the user, unless they
/// have outcomes; futures likewise. All are safe from any thread.
struct TidyServices {
    // --- The machine ----------------------------------------------------------------------------------

    std::function<Date()> now;
    /// The user's home folder.
    std::function<std::filesystem::path()> home;
    /// Where the settings are kept.
    std::function<std::shared_ptr<UserDefaults>()> settings;
    std::function<FullDiskAccessStatus()> diskAccess;
    /// The volumes that users see.
    std::function<std::vector<VolumeInfo>()> volumes;
    std::function<std::optional<VolumeInfo>(const std::filesystem::path&)> volumeContaining;
    /// Looks at the volumes that users see again and again, `interval` in seconds, and tells what has
    /// changed.
    std::function<std::unique_ptr<SpaceMonitor>(double interval)> watchVolumes;

    // --- Looking --------------------------------------------------------------------------------------

    std::function<std::future<ScanResult>(const std::filesystem::path&, ScanOptions,
                                          DiskScanner::ProgressHandler, CancellationToken)>
        scan;
    /// Where the used bytes of the volume that holds a scan's root are.
    std::function<VolumeLedger(const ScanResult&, const CancellationToken&)> ledger;
    /// What the probe of a home folder finds.
    std::function<std::future<std::vector<SpaceSaverFinding>>(const std::filesystem::path& home,
                                                              SpaceSaverProbe::Request, CancellationToken)>
        findings;

    std::function<std::future<DuplicateResult>(std::vector<std::shared_ptr<const FileNode>> roots,
                                               DuplicateOptions, DuplicateFinder::ProgressHandler,
                                               CancellationToken)>
        findDuplicates;
    /// What the file at a path is now; nothing when there is none that could be a duplicate.
    std::function<std::optional<FileVersion>(const std::filesystem::path&)> fileVersion;

    /// Opens the store of snapshots.
    std::function<std::unique_ptr<SnapshotStore>()> snapshotStore;
    /// The scans of the past. Reports and scheduled snapshots write it.
    std::function<ScanHistory()> history;

    // --- Acting ---------------------------------------------------------------------------------------

    /// A set of items that go to the Trash one by one, and can be restored as one. Throws for want of memory
    /// only.
    std::function<TrashMoves(std::vector<std::filesystem::path>)> planTrash;
    /// What lies in the Trash, and from where it came. Never throws.
    std::function<TrashListing()> listTrash;
    /// Puts items of the Trash back where they were, by their places there or by their set. Never throw.
    /// What is left when the token is cancelled stays there, and its outcome says so.
    std::function<std::vector<RestoreOutcome>(const std::vector<std::filesystem::path>&,
                                              const CancellationToken&)>
        restore;
    std::function<std::vector<RestoreOutcome>(const UUID& set)> restoreSet;
    /// For the applications of a home.
    std::function<Uninstaller(const std::filesystem::path& home)> uninstaller;
    /// Whether an item's place has a Trash.
    std::function<WayOut(const std::filesystem::path&)> wayOutOf;
    /// Deletes an item for good.
    std::function<RemovalResult(const std::filesystem::path&, const CancellationToken&)> removeForGood;
    /// Makes the files of a group share their blocks.
    std::function<std::future<std::vector<SharingOutcome>>(SharingRequest, CancellationToken)> shareBlocks;
    std::function<TrashSummary(const std::filesystem::path& home)> trashSummary;
    /// Empties the Trash for good: by the system's file browser where there is one that does it. Never
    /// throws.
    std::function<EmptyTrashOutcome(const std::filesystem::path& home, const CancellationToken&)> emptyTrash;
    std::function<std::vector<SyncedRoot>(const std::filesystem::path& home)> syncedRoots;
    /// Removes the local copy of one file. Never throws.
    std::function<EvictionOutcome(const std::filesystem::path&, const std::vector<SyncedRoot>&)> evict;
    /// Runs a tool that is found on the PATH, without a limit of time. Nothing when there is no such tool.
    std::function<std::optional<CommandResult>(const std::vector<std::string>& words)> runTool;
    /// Shows a file or folder in the system's file browser; whether that was started.
    std::function<bool(const std::filesystem::path&)> reveal;
    /// Opens a file with the program that is meant for its kind; whether that was started.
    std::function<bool(const std::filesystem::path&)> open;
    /// Writes a file, in place of one of that name, whole or not at all; only the user may read it.
    std::function<void(const std::filesystem::path&, std::string_view contents)> writeFile;
    /// What makes the system start the schedule of snapshots: `<this program> <arguments>`.
    std::function<ScheduledJobPlan(const std::vector<std::string>& arguments)> schedulePlan;
    ScheduleInstaller scheduleInstaller;

    /// The services of the real machine, made once.
    static const TidyServices& live();
};

} // namespace tarnwell
