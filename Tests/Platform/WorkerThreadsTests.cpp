#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tarnwell {
namespace {

using Place = WorkerThreads::Place;

TEST(WorkerThreads, NeverMoreRunThanWereAskedForHoweverSlowlyTheyStart) {
    struct Case {
        int count, most, regular, extra;
    };
    const Case cases[] = {{0, 1, 1, 0}, {1, 1, 1, 0},    {1, 3, 1, 2},   {2, 5, 2, 3},
                          {3, 2, 3, 0}, {16, 16, 16, 0}, {16, 20, 16, 4}};
    for (const Case& one : cases) {
        std::mutex mutex;
        std::condition_variable changed;
        int regular = 0;
        int extra = 0;
        // Each start but the first waits until those that run have added all that they can.
        bool isFirstStart = true;
        const auto beforeStart = [&] {
            std::unique_lock lock(mutex);
            if (!std::exchange(isFirstStart, false))
                changed.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return regular + extra >= std::max(one.count, one.most) - 1; });
        };
        WorkerThreads threads(
            [&](Place place) {
                threads.addOne(one.most);
                threads.addOne(one.most);
                std::unique_lock lock(mutex);
                ++(place == Place::regular ? regular : extra);
                changed.notify_all();
                changed.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return regular + extra >= one.regular + one.extra; });
            },
            one.most >= one.count ? beforeStart : std::function<void()>());
        threads.run(one.count);
        EXPECT_EQ(regular, one.regular) << one.count << " " << one.most;
        EXPECT_EQ(extra, one.extra) << one.count << " " << one.most;
    }
}

TEST(WorkerThreads, PlacesAreFilledAgainOnceTheirBodyHasReturned) {
    constexpr int most = 3;
    std::atomic<int> calls = 0;
    std::atomic<int> running = 0;
    std::atomic<bool> isOverfull = false;
    const std::thread::id caller = std::this_thread::get_id();
    WorkerThreads threads([&](Place) {
        if (++running > most)
            isOverfull = true;
        if (std::this_thread::get_id() == caller)
            while (calls < 100) {
                threads.addOne(most);
                std::this_thread::yield();
            }
        ++calls;
        --running;
    });
    threads.run(1);
    EXPECT_GT(calls, 100);
    EXPECT_FALSE(isOverfull);
}

TEST(WorkerThreads, OneAloneRunsOnTheCallingThread) {
    const auto noThread = [] {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    };
    for (const int count : {1, 4}) {
        std::vector<std::thread::id> ids;
        WorkerThreads([&](Place) { ids.push_back(std::this_thread::get_id()); }, noThread).run(count);
        EXPECT_EQ(ids, std::vector{std::this_thread::get_id()}) << count;
    }
}

TEST(WorkerThreads, AnExceptionComesOutOnceAllHaveEnded) {
    for (const int thrower : {0, 1, 2}) {
        std::atomic<int> ended = 0;
        std::atomic<int> started = 0;
        WorkerThreads threads([&](Place) {
            threads.addOne(3);
            const int number = started++;
            while (started < 3)
                std::this_thread::yield();
            if (number == thrower)
                throw std::runtime_error("out of luck");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            ++ended;
        });
        EXPECT_THROW(threads.run(2), std::runtime_error) << thrower;
        EXPECT_EQ(ended, 2) << thrower;
    }
}

} // namespace
} // namespace tarnwell
