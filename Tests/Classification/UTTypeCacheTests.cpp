#include "TarnwellCore/Classification/UTTypeCache.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace tarnwell {
namespace {

/// Known are the extensions that end with a digit.
std::optional<FileCategory> answerFor(std::string_view ext) {
    if (ext.empty() || ext.back() < '0' || ext.back() > '9')
        return std::nullopt;
    return static_cast<FileCategory>(ext.back() - '0');
}

TEST(UTTypeCache, AsksOnceForEachExtension) {
    std::vector<std::string> asked;
    UTTypeCache cache([&](std::string_view ext) {
        asked.emplace_back(ext);
        return answerFor(ext);
    });
    const std::vector<std::string> extensions = {"a0",       "none",
                                                 "",         std::string(300, 'x') + "5",
                                                 "\xFF\xFE", std::string(300, 'x'),
                                                 "a",        std::string("a\0", 2)};
    for (int round = 0; round < 2; ++round)
        for (const std::string& ext : extensions)
            EXPECT_EQ(cache.category(ext), answerFor(ext)) << ext;
    EXPECT_EQ(asked, extensions);
}

TEST(UTTypeCache, AsksOutsideItsLock) {
    UTTypeCache* self = nullptr;
    UTTypeCache cache(
        [&](std::string_view ext) { return ext == "outer" ? self->category("inner1") : answerFor(ext); });
    self = &cache;
    EXPECT_EQ(cache.category("outer"), FileCategory::audio);
}

TEST(UTTypeCache, ThreadsGetTheSameAnswers) {
    constexpr int distinct = 3'000;
    constexpr int threadCount = 4;
    std::atomic<int> queries = 0;
    std::atomic<int> wrong = 0;
    UTTypeCache cache([&](std::string_view ext) {
        ++queries;
        return answerFor(ext);
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&, thread] {
            for (int step = 0; step < 4 * distinct; ++step) {
                const int number = (step * (thread + 1)) % distinct;
                const std::string ext =
                    std::to_string(number) + (number % 2 ? "-known-" : "u") + std::to_string(number % 10);
                wrong += cache.category(ext) != answerFor(ext);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(queries, distinct);
    EXPECT_LE(queries, distinct * threadCount);
}

} // namespace
} // namespace tarnwell
