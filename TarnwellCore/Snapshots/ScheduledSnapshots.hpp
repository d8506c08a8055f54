#pragma once

// Takes the snapshots of a schedule: one function for a timer, a window or a command to call as often as they
// like. The settings are in a room above; their values come and go through functions
// (Settings/SettingsSchedule.hpp fills them in).

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/UUID.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Snapshots/SnapshotSchedule.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// What came of a call.
struct ScheduledRun {
    enum class Outcome : std::uint8_t {
        off,    ///< the cadence is off, or no root is set
        notDue, ///< nothing to do yet
        busy,   ///< another process is at it
        taken,  ///< a snapshot was taken
    };

    Outcome outcome = Outcome::off;
    /// The snapshot that was taken.
    std::optional<ScanSnapshot> snapshot;
    /// Scheduled snapshots that were removed, as too old to be kept.
    std::vector<UUID> removed;
    /// What failed once the snapshot was stored (noting the date, the history, removing old ones), as texts
    /// for the user. The snapshot is safe, and the next call goes on from there.
    std::vector<std::string> failures;
};

/// Copies share the store. Calls are safe from any thread and process: one at a time takes a snapshot.
struct ScheduledSnapshots {
    // --- Effects --------------------------------------------------------------------------------------

    std::function<SnapshotCadence()> cadence;
    /// The folder to scan.
    std::function<std::optional<std::string>()> root;
    std::function<std::optional<Date>()> lastAt;
    /// Remembers the date for good; throws when that fails.
    std::function<void(Date)> noteLastAt;
    /// Throws ScanError.
    std::function<ScanResult(const std::string& root, const CancellationToken& token)> scan;
    /// Adds a scan to the history.
    std::function<void(const ScanResult&)> noteScan = [](const ScanResult&) {};
    std::shared_ptr<SnapshotStore> store;
    std::function<Date()> now = currentDate;
    SnapshotSchedule::DayOf dayOf = localDay;
    SnapshotSchedule::Retention retention = {};

    // --- The work -------------------------------------------------------------------------------------

    /// When a snapshot is due, or `isForced`: scans the root, stores a snapshot that is marked as scheduled,
    /// notes its date, and removes scheduled snapshots of any root that need not be kept, never one that a
    /// person saved. Blocks until that is done. Captured are items of 1,000,000 bytes or more down to four
    /// levels, as by `snapshot save`.
    ///
    /// Due at most once: what is due is asked under a lock that is held to the end, and a snapshot that was
    /// stored by a process that died before it could note the date counts as noted. Throws what scanning and
    /// storing throw (ScanError, std::system_error); then nothing is stored, noted or removed, and it is
    /// still due.
    ScheduledRun run(bool isForced = false, const CancellationToken& token = {}) const;
};

} // namespace tarnwell
