#include "TarnwellCore/Scanning/SpaceMonitor.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>

namespace tarnwell {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

VolumeInfo volume(const char* path, std::int64_t available) {
    VolumeInfo info;
    info.path = path;
    info.totalCapacity = 1000;
    info.availableCapacity = available;
    return info;
}

/// Shows one list of volumes after the other, then the last one for ever.
SpaceMonitor::VolumeReader showing(std::vector<std::vector<VolumeInfo>> looks) {
    return [looks = std::move(looks), next = std::size_t{0}](const SpaceMonitor::Target&) mutable {
        return looks[std::min(next++, looks.size() - 1)];
    };
}

using Deltas = std::map<std::string, std::int64_t>;

TEST(SpaceMonitor, ReportsWhatChangedSinceTheLookBefore) {
    SpaceMonitor monitor(0, SpaceMonitor::AllVolumes{}, true,
                         showing({{volume("/a", 100), volume("/b", 50)},
                                  {volume("/a", 100), volume("/b", 50)},
                                  {volume("/a", 130), volume("/b", 20)},
                                  {volume("/a", 130), volume("/c", 9)},
                                  {volume("/a", 130), volume("/c", 9)},
                                  {volume("/a", 30), volume("/b", 999), volume("/c", 9)}}));
    const auto updates = monitor.updates();
    const auto first = updates.next();
    EXPECT_EQ(first->volumes.size(), 2U);
    EXPECT_EQ(first->availableDelta, Deltas());
    EXPECT_EQ(first->totalFreed(), 0);
    const auto second = updates.next(); // the look that found no change is passed over
    EXPECT_EQ(second->availableDelta, (Deltas{{"/a", 30}, {"/b", -30}}));
    EXPECT_EQ(second->totalFreed(), 0);
    EXPECT_GE(second->timestamp, first->timestamp);
    // One volume has gone, another has come: neither has a change.
    EXPECT_EQ(updates.next()->availableDelta, (Deltas{{"/a", 0}}));
    const auto fourth = updates.next();
    EXPECT_EQ(fourth->availableDelta, (Deltas{{"/a", -100}, {"/c", 0}}));
    EXPECT_EQ(fourth->totalFreed(), -100);
    monitor.stop();
    EXPECT_FALSE(updates.next());
}

TEST(SpaceMonitor, EveryLookIsReportedUnlessOnlyChangesAreWanted) {
    std::atomic<int> looks = 0;
    const auto read = [&looks](const SpaceMonitor::Target& target) {
        ++looks;
        EXPECT_EQ(std::get<SpaceMonitor::Paths>(target).paths, std::vector<std::string>{"/x"});
        return std::vector{volume("/x", 1)};
    };
    const SpaceMonitor::Target target = SpaceMonitor::Paths{{"/x"}};
    {
        SpaceMonitor every(0.1, target, false, read);
        for (int index = 0; index < 3; ++index)
            EXPECT_TRUE(every.updates().next());
    }
    looks = 0;
    SpaceMonitor changes(0.1, target, true, read);
    const auto updates = changes.updates();
    EXPECT_TRUE(updates.next());
    while (looks < 4)
        std::this_thread::sleep_for(milliseconds(5));
    changes.stop();
    EXPECT_FALSE(updates.next());
}

TEST(SpaceMonitor, TheIntervalIsATenthOfASecondOrMore) {
    for (const double interval : {0.0, -5.0, std::nan(""), -std::numeric_limits<double>::infinity(), 1e-9}) {
        std::vector<Clock::time_point> looks; // what the monitor's thread has seen; read once that has ended
        SpaceMonitor monitor(interval, SpaceMonitor::BootVolume{}, false, [&](const auto&) {
            looks.push_back(Clock::now());
            return std::vector<VolumeInfo>();
        });
        const auto updates = monitor.updates();
        for (int index = 0; index < 3; ++index)
            updates.next();
        monitor.stop();
        ASSERT_GE(looks.size(), 3U);
        for (std::size_t index = 1; index < looks.size(); ++index)
            EXPECT_GE(looks[index] - looks[index - 1], milliseconds(100)) << interval;
        EXPECT_LT(looks[2] - looks[0], milliseconds(20'000)) << interval;
    }
}

TEST(SpaceMonitor, StopsAtOnceHoweverLongTheInterval) {
    for (const double interval : {3600.0, std::numeric_limits<double>::infinity(), 1e300}) {
        const auto start = Clock::now();
        std::optional<AsyncStream<SpaceUpdate>> updates;
        std::atomic<int> looks = 0;
        {
            SpaceMonitor monitor(interval, SpaceMonitor::AllVolumes{}, false, [&](const auto&) {
                ++looks;
                return std::vector<VolumeInfo>();
            });
            updates = monitor.updates();
            EXPECT_TRUE(updates->next());
        }
        // The stream may outlive the monitor; the reader is never called again.
        EXPECT_FALSE(updates->next());
        EXPECT_EQ(looks, 1);
        EXPECT_LT(Clock::now() - start, milliseconds(60'000));
    }
}

TEST(SpaceMonitor, StoppingFromManyThreadsAndFromTheReader) {
    SpaceMonitor monitor(0.1, SpaceMonitor::AllVolumes{}, false, showing({{}}));
    std::vector<std::thread> threads;
    for (int index = 0; index < 6; ++index)
        threads.emplace_back([&] { monitor.stop(); });
    for (std::thread& thread : threads)
        thread.join();
    monitor.stop();

    auto owned = std::make_shared<std::unique_ptr<SpaceMonitor>>();
    std::atomic<bool> mayLook = false;
    *owned = std::make_unique<SpaceMonitor>(0.1, SpaceMonitor::AllVolumes{}, false,
                                            [owned, &mayLook](const auto&) {
                                                while (!mayLook)
                                                    std::this_thread::sleep_for(milliseconds(1));
                                                owned->reset();
                                                return std::vector<VolumeInfo>();
                                            });
    const auto updates = (*owned)->updates();
    mayLook = true;
    EXPECT_FALSE(updates.next());
}

TEST(SpaceMonitor, LiveVolumesOfEachTarget) {
    const auto boot = SpaceMonitor::liveVolumes(SpaceMonitor::BootVolume{});
    ASSERT_EQ(boot.size(), 1U);
    EXPECT_EQ(boot.front().path, "/");
    const auto all = SpaceMonitor::liveVolumes(SpaceMonitor::AllVolumes{});
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all.front().path, "/");
    const auto ofPaths = SpaceMonitor::liveVolumes(SpaceMonitor::Paths{{"/", "/usr/..", "/nonexistent", ""}});
    ASSERT_EQ(ofPaths.size(), 1U);
    EXPECT_EQ(ofPaths.front().path, "/");
    EXPECT_TRUE(SpaceMonitor::liveVolumes(SpaceMonitor::Paths{}).empty());
}

} // namespace
} // namespace tarnwell
