#include "TarnwellCore/Platform/TimeLimitedCalls.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <vector>

namespace tarnwell {
namespace {

using std::chrono::milliseconds;

TEST(TimeLimitedCalls, ACallThatHangsCostsOneThreadAndOneWait) {
    TimeLimitedCalls<int> calls;
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    std::atomic<int> made = 0;
    const auto hang = [&made, ended]() -> std::optional<int> {
        ++made;
        ended.wait();
        return 1;
    };
    EXPECT_EQ(calls.get("hanging", milliseconds(50), hang), std::nullopt);
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < 100; ++round)
        EXPECT_EQ(calls.get("hanging", milliseconds(60'000), hang), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(20'000));
    while (made == 0) // its thread may not have had a turn yet
        std::this_thread::yield();
    EXPECT_EQ(made, 1);
    // Others are not held up, and what failed is no answer either.
    EXPECT_EQ(calls.get("quick", milliseconds(60'000), [] { return 2; }), 2);
    EXPECT_EQ(calls.get("failing", milliseconds(60'000), [] { return std::nullopt; }), std::nullopt);

    // Once it has returned, the next to ask makes a fresh call.
    end.set_value();
    while (calls.get("hanging", milliseconds(60'000), [] { return 3; }) != 3) {
    }
}

TEST(TimeLimitedCalls, ThreadsShareACallThatIsUnderWay) {
    TimeLimitedCalls<int> calls;
    std::atomic<int> made = 0;
    std::atomic<int> arrived = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([&] {
            ++arrived;
            EXPECT_EQ(calls.get("key", milliseconds(60'000),
                                [&]() -> std::optional<int> {
                                    ++made;
                                    while (arrived < 8)
                                        std::this_thread::yield();
                                    std::this_thread::sleep_for(milliseconds(100));
                                    return 7;
                                }),
                      7);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_LT(made, 8);
}

} // namespace
} // namespace tarnwell
