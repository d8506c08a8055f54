#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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
    const Case cases[] = {{0, 1, {0}}, {1, 1, {0}}, {1, 3, {0, 1, 2}}, {2, 5, {0, 1, 2, 3, 4}}, {3, 2, {0, 1, 2}}};
    for (const Case& one : cases) {
        std::mutex mutex;
        std::multiset<int> numbers;
        WorkerThreads threads([&](int number) {
            // Each adds one when those that were there first may be done already.
            std::this_thread::sleep_for(std::chrono::milliseconds(5 * number));
            threads.addOne(one.most);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            const std::lock_guard guard(mutex);
            numbers.insert(number);
        });
        threads.run(one.count);
        EXPECT_EQ(numbers, std::multiset<int>(one.numbers.begin(), one.numbers.end()))
            << one.count << " " << one.most;
    }
}

TEST(WorkerThreads, OneAloneRunsOnTheCallingThread) {
    std::thread::id id;
    WorkerThreads([&](int) { id = std::this_thread::get_id(); }).run(1);
    EXPECT_EQ(id, std::this_thread::get_id());
}

TEST(WorkerThreads, AnExceptionComesOutOnceAllHaveEnded) {
    for (const int thrower : {0, 1, 2}) { // the last is added
        std::atomic<int> ended = 0;
        WorkerThreads threads([&](int number) {
            threads.addOne(3);
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
