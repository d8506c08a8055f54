#pragma once

// The schedule of snapshots as the settings have it.

#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellCore/Snapshots/ScanHistory.hpp"
#include "TarnwellCore/Snapshots/ScheduledSnapshots.hpp"

#include <memory>

namespace tarnwell {

/// The cadence of the settings; what is none is off.
SnapshotCadence snapshotCadenceOf(const AppSettings& settings);

/// Takes snapshots of the settings' root at their cadence, scans with their options, notes the date in them
/// and each scan in the history. Noting throws std::runtime_error when the settings cannot be stored.
ScheduledSnapshots scheduledSnapshots(const AppSettings& settings, std::shared_ptr<SnapshotStore> store,
                                      const ScanHistory& history = ScanHistory());

} // namespace tarnwell
