#include "TarnwellCore/Settings/SettingsSchedule.hpp"

#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <stdexcept>
#include <utility>

namespace tarnwell {

SnapshotCadence snapshotCadenceOf(const AppSettings& settings) {
    return snapshotCadenceFromRawValue(settings.snapshotCadence()).value_or(SnapshotCadence::off);
}

ScheduledSnapshots scheduledSnapshots(const AppSettings& settings, std::shared_ptr<SnapshotStore> store,
                                      const ScanHistory& history) {
    ScheduledSnapshots schedule;
    schedule.cadence = [settings] { return snapshotCadenceOf(settings); };
    schedule.root = [settings] { return settings.snapshotScheduleRoot(); };
    schedule.lastAt = [settings] { return settings.lastScheduledSnapshotAt(); };
    schedule.noteLastAt = [settings = settings](Date date) mutable {
        settings.setLastScheduledSnapshotAt(date);
        if (!settings.defaults().synchronize())
            throw std::runtime_error(
                settings.defaults().storingFailure().value_or("The settings could not be stored."));
    };
    schedule.scan = [settings](const std::string& root, const CancellationToken& token) {
        return DiskScanner().scan(root, settings.scanOptions(), nullptr, token).get();
    };
    schedule.noteScan = [history](const ScanResult& result) {
        if (result.root)
            history.note(ScanRecord::of(result, DiskInfo::volumeContaining(result.root->path())));
    };
    schedule.store = std::move(store);
    return schedule;
}

} // namespace tarnwell
