#include "TarnwellCore/Platform/JSONFileDefaults.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Settings/SettingsSchedule.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace tarnwell {
namespace {

TEST(SettingsSchedule, TakesASnapshotOfTheSettingsRootAndNotesIt) {
    const test::TemporaryFolder folder;
    folder.makeFile("root/a/file", 5000);
    folder.makeFile("root/left out/file", 5000);
    const std::string root = (folder / "root").string();
    AppSettings settings(std::make_shared<JSONFileDefaults>(folder / "s.json"));
    const ScanHistory history(folder / "scan-history.json");
    const auto store = std::make_shared<SnapshotStore>(folder / "Snapshots");
    const ScheduledSnapshots schedule = scheduledSnapshots(settings, store, history);
    EXPECT_EQ(schedule.run().outcome, ScheduledRun::Outcome::off);
    settings.setSnapshotCadence("daily");
    EXPECT_EQ(schedule.run().outcome, ScheduledRun::Outcome::off) << "without a root";
    settings.setSnapshotScheduleRoot(root + "/");
    settings.setScanExclusions({root + "/left out"});
    const ScheduledRun run = schedule.run();
    EXPECT_EQ(run.outcome, ScheduledRun::Outcome::taken);
    EXPECT_TRUE(run.failures.empty()) << run.failures.front();
    ASSERT_TRUE(run.snapshot);
    EXPECT_EQ(run.snapshot->totalSize, 5000);
    // The next start of the program finds all of it.
    const AppSettings again(std::make_shared<JSONFileDefaults>(folder / "s.json"));
    ASSERT_TRUE(again.lastScheduledSnapshotAt());
    EXPECT_EQ(scheduledSnapshots(again, store, history).run().outcome, ScheduledRun::Outcome::notDue);
    ASSERT_EQ(history.series(root).size(), 1u);
    EXPECT_EQ(history.series(root)[0].volume.has_value(), DiskInfo::volumeContaining(root).has_value());
    ASSERT_EQ(store->list().size(), 1u);
    EXPECT_TRUE(store->list()[0].isScheduled);
    // Where it was not noted, what is stored counts.
    settings.setLastScheduledSnapshotAt(std::nullopt);
    EXPECT_EQ(schedule.run().outcome, ScheduledRun::Outcome::notDue);
    EXPECT_TRUE(settings.lastScheduledSnapshotAt());
    settings.setSnapshotCadence("hourly");
    EXPECT_EQ(snapshotCadenceOf(settings), SnapshotCadence::off) << "of no meaning here";
}

} // namespace
} // namespace tarnwell
