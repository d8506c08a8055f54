// What real accidents leave of a store: processes killed while they save, crowds.

#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include "Tests/Support/FaultyFileCalls.hpp"
#include "Tests/Support/SampleSnapshots.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::FaultyFileCalls;
using test::makeCheckableSnapshot;
using test::TemporaryFolder;

constexpr std::size_t entryCount = 400;

bool isWhole(const ScanSnapshot& snapshot) {
    return snapshot == makeCheckableSnapshot(snapshot.id, entryCount);
}

/// Runs `body` in a process of its own, which ends with it.
pid_t startProcess(const std::function<void()>& body) {
    const pid_t process = ::fork();
    if (process == 0) {
        try {
            body();
        } catch (const std::exception&) {
            ::_exit(1);
        }
        ::_exit(0);
    }
    return process;
}

/// The status with which a process ended.
int waitFor(pid_t process) {
    int status = 0;
    EXPECT_EQ(::waitpid(process, &status, 0), process);
    return status;
}

/// What a process that was killed while it saved must leave: every snapshot whole, the older one among them.
/// Clears the rest away and gives the number of unfinished files that there were.
int expectOnlyWholeSnapshots(SnapshotStore& store, const UUID& older) {
    std::ptrdiff_t jsonFiles = 0;
    int leftovers = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(store.directory())) {
        jsonFiles += entry.path().extension() == ".json" ? 1 : 0;
        if (entry.path().extension() == ".tmp") {
            ++leftovers;
            fs::remove(entry.path());
        }
    }
    const std::vector<ScanSnapshot> listed = store.list();
    EXPECT_EQ(std::ssize(listed), jsonFiles);
    EXPECT_TRUE(std::ranges::all_of(listed, isWhole));
    EXPECT_NE(std::ranges::find(listed, older, &ScanSnapshot::id), listed.end());
    for (const ScanSnapshot& snapshot : listed)
        if (snapshot.id != older)
            store.deleteSnapshot(snapshot.id);
    return leftovers;
}

TEST(SnapshotCrash, AKillAtAnyCallOfASaveLeavesWholeSnapshotsOnly) {
    const TemporaryFolder folder;
    SnapshotStore store(folder.path());
    const UUID older = UUID::random();
    store.save(makeCheckableSnapshot(older, entryCount));
    for (const bool isReplaced : {false, true}) {
        int kills = 0;
        int leftovers = 0;
        for (bool isKilled = true; isKilled && kills < 100; kills += isKilled ? 1 : 0) {
            const pid_t process = startProcess([&] {
                SnapshotStore dying(folder.path(), FaultyFileCalls::dying(kills));
                dying.save(makeCheckableSnapshot(isReplaced ? older : UUID::random(), entryCount));
            });
            ASSERT_GT(process, 0);
            const int status = waitFor(process);
            isKilled = WIFSIGNALED(status);
            SCOPED_TRACE("killed at call " + std::to_string(kills));
            leftovers += expectOnlyWholeSnapshots(store, older);
        }
        EXPECT_GT(leftovers, 2) << "none was killed between making the file and renaming it";
    }
}

TEST(SnapshotCrash, TwentyProcessesSaveWhileOthersList) {
    const TemporaryFolder folder;
    constexpr int savers = 20;
    constexpr int savesEach = 3;
    std::vector<pid_t> processes;
    for (int saver = 0; saver < savers; ++saver)
        processes.push_back(startProcess([&] {
            SnapshotStore store(folder.path() / "deep/store");
            for (int round = 0; round < savesEach; ++round)
                store.save(makeCheckableSnapshot(UUID::random(), entryCount));
        }));
    SnapshotStore store(folder.path() / "deep/store");
    std::size_t listedBefore = 0;
    for (const pid_t process : processes) {
        const std::vector<ScanSnapshot> listed = store.list();
        EXPECT_GE(listed.size(), listedBefore);
        EXPECT_TRUE(std::ranges::all_of(listed, isWhole));
        listedBefore = listed.size();
        EXPECT_EQ(waitFor(process), 0);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(store.directory()), fs::directory_iterator()),
              savers * savesEach);
    const std::vector<ScanSnapshot> listed = store.list();
    EXPECT_EQ(listed.size(), std::size_t{savers * savesEach});
    EXPECT_TRUE(std::ranges::all_of(listed, isWhole));
}

} // namespace
} // namespace tarnwell
