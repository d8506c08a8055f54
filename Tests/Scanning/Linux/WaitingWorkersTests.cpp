// More workers than processors would keep busy read folders for which the disk has to be waited for.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/FolderOracle.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

namespace tarnwell {
namespace {

constexpr std::size_t fewRecords = 4096; // so that it takes some readings to find three thousand files

std::mutex readersMutex;
std::set<long> readers; // thread numbers; guarded by readersMutex
std::atomic<int> reads = 0;
std::atomic<int> slowReads = 0; // of a thousand, as where some parts of the tree are in the kernel's caches

DirectoryCalls slowCalls() {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.readPacked = [](int folder, std::byte* buffer, std::size_t size) {
        {
            const std::lock_guard guard(readersMutex);
            readers.insert(::syscall(SYS_gettid));
        }
        if (reads++ % 1000 < slowReads)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return DirectoryCalls::live().readPacked(folder, buffer, std::min(size, fewRecords));
    };
    return calls;
}

bool isMemoryLimited() {
    struct rlimit mapped = {};
    struct rlimit data = {};
    return ::getrlimit(RLIMIT_AS, &mapped) != 0 || ::getrlimit(RLIMIT_DATA, &data) != 0 ||
           mapped.rlim_cur != RLIM_INFINITY || data.rlim_cur != RLIM_INFINITY;
}

TEST(WaitingWorkers, JoinUnlessTheirNumberIsGivenOrMemoryIsLimited) {
    if (isMemoryLimited())
        GTEST_SKIP() << "mapped memory is limited here";
    constexpr int folderCount = 300;
    const test::TemporaryFolder folder;
    for (int index = 0; index < folderCount; ++index)
        folder.makeFile("wide/" + std::to_string(index) + "/file", 1);
    const DirectoryCalls calls = slowCalls();
    slowReads = 1000;
    struct Case {
        std::optional<int> workerCount;
        rlim_t addressSpace;
        std::size_t least, most;
    };
    struct rlimit original = {};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &original), 0);
    const rlim_t any = original.rlim_max;
    // Each worker adds at most one after a batch, and there are batches enough for more than the sixteen.
    const Case cases[] = {
        {std::nullopt, any, 9, 16},
        {std::nullopt, rlim_t{1} << 60, 2, 8},
        {3, any, 2, 3},
        {1, any, 1, 1},
        // So many that the first ones wait, and want others to join, long before the last ones have started.
        {200, any, 2, 200}};
    for (const Case& one : cases) {
        SCOPED_TRACE(one.workerCount.value_or(0));
        const struct rlimit limit = {.rlim_cur = one.addressSpace, .rlim_max = original.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
        readers.clear();
        ScanOptions options;
        options.workerCount = one.workerCount;
        const ScanResult result = ScanEngine(folder.path().string(), options, true, calls).run();
        EXPECT_EQ(result.stats.fileCount, folderCount);
        EXPECT_GE(readers.size(), one.least);
        EXPECT_LE(readers.size(), one.most);
    }
    ::setrlimit(RLIMIT_AS, &original);
}

TEST(WaitingWorkers, JoinInAFolderThatIsAllThereIs) {
    if (isMemoryLimited())
        GTEST_SKIP() << "mapped memory is limited here";
    const test::TemporaryFolder folder;
    for (std::uint64_t index = 0; index < 3000; ++index)
        folder.makeFile(std::to_string(index), index % 3);
    const auto oracle = test::measureFolder(folder.path());
    static std::atomic<int> asked;
    static std::atomic<int> slowEntries; // the first ones
    DirectoryCalls calls = slowCalls();
    slowReads = 0;
    calls.extendedStatus = [](int parent, const char* name, void* status) {
        if (asked++ < slowEntries)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return DirectoryCalls::live().extendedStatus(parent, name, status);
    };
    for (const int slow : {3000, 1500, 500}) { // they leave again when the rest is fast
        asked = 0;
        slowEntries = slow;
        readers.clear();
        const ScanResult result = ScanEngine(folder.path().string(), {}, true, calls).run();
        test::expectAgreement(*result.root, oracle);
        if (slow == 3000) {
            EXPECT_GT(readers.size(), 4u) << "none has joined";
        }
    }
}

TEST(WaitingWorkers, LeaveAndJoinAgainWithoutLosingAnything) {
    if (isMemoryLimited())
        GTEST_SKIP() << "mapped memory is limited here";
    const test::TemporaryFolder folder;
    for (std::uint64_t index = 0; index < 2000; ++index)
        folder.makeFile(std::to_string(index % 40) + "/" + std::to_string(index) + "/file", index);
    const auto oracle = test::measureFolder(folder.path());
    const DirectoryCalls calls = slowCalls();
    slowReads = 300;
    readers.clear();
    const ScanResult result = ScanEngine(folder.path().string(), {}, true, calls).run();
    EXPECT_GT(readers.size(), 16u) << "none has left";
    test::expectAgreement(*result.root, oracle);
}

} // namespace
} // namespace tarnwell
