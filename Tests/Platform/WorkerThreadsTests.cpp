#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

namespace tarnwell {
namespace {

TEST(WorkerThreads, ThoseThatAreAddedHaveNumbersOfTheirOwnAndAreWaitedFor) {
    struct Case {
        int count;
        int most;
        std::set<int> numbers;
    };
    const Case cases[] = {
        {0, 1, {0}}, {1, 1, {0}}, {1, 3, {0, 1, 2}}, {2, 5, {0, 1, 2, 3, 4}}, {3, 2, {0, 1, 2}}};
    for (const Case& one : cases) {
        std::mutex mutex;
        std::condition_variable changed;
        std::multiset<int> running;
        WorkerThreads threads([&](int number) {
            threads.addOne(one.most);
            threads.addOne(one.most);
            std::unique_lock lock(mutex);
            running.insert(number);
            changed.notify_all();
            changed.wait_for(lock, std::chrono::seconds(10),
                             [&] { return running.size() >= one.numbers.size(); });
        });
        threads.run(one.count);
        EXPECT_EQ(running, std::multiset<int>(one.numbers.begin(), one.numbers.end()))
            << one.count << " " << one.most;
    }
}

TEST(WorkerThreads, NumbersAreGivenAgainOnceTheirBodyHasReturned) {
    constexpr int most = 3;
    std::atomic<int> calls = 0;
    std::array<std::atomic<int>, most> running = {};
    std::atomic<bool> isShared = false;
    WorkerThreads threads([&](int number) {
        std::atomic<int>& own = running.at(static_cast<std::size_t>(number));
        if (++own > 1)
            isShared = true;
        if (number == 0)
            while (calls < 100) {
                threads.addOne(most);
                std::this_thread::yield();
            }
        ++calls;
        --own;
    });
    threads.run(1);
    EXPECT_GT(calls, 100);
    EXPECT_FALSE(isShared);
}

TEST(WorkerThreads, OneAloneRunsOnTheCallingThread) {
    std::thread::id id;
    WorkerThreads([&](int) { id = std::this_thread::get_id(); }).run(1);
    EXPECT_EQ(id, std::this_thread::get_id());
}

TEST(WorkerThreads, AnExceptionComesOutOnceAllHaveEnded) {
    for (const int thrower : {0, 1, 2}) { // the last is added
        std::atomic<int> ended = 0;
        std::atomic<int> started = 0;
        WorkerThreads threads([&](int number) {
            if (number == 0)
                threads.addOne(3);
            for (++started; started < 3;)
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
