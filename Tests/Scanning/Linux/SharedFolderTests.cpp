// Folders that several workers read at once. The kernel is made to give few records at a time, so that small
// ones are shared.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/LiveTree.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include "Tests/Support/FolderOracle.hpp"
#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace tarnwell {
namespace {

constexpr std::size_t shortReading = 1024;

std::mutex askersMutex;
std::set<long> askers; // threads that asked about an entry named "many…"; guarded by askersMutex
/// What happens before an entry is asked about; an errno instead of asking, or 0. Told how many asked before.
std::function<int(const char*, int)> beforeAsking;
std::function<int()> beforeReading;
std::atomic<int> asked = 0;

DirectoryCalls calls() {
    askers.clear();
    asked = 0;
    DirectoryCalls calls = DirectoryCalls::live();
    calls.readPacked = [](int folder, std::byte* buffer, std::size_t size) -> long {
        if (const int error = beforeReading ? beforeReading() : 0; error != 0) {
            errno = error;
            return -1;
        }
        return DirectoryCalls::live().readPacked(folder, buffer, std::min(size, shortReading));
    };
    calls.extendedStatus = [](int folder, const char* name, void* status) {
        if (std::string_view(name).starts_with("many")) {
            {
                const std::lock_guard guard(askersMutex);
                askers.insert(::syscall(SYS_gettid));
            }
            if (const int error = beforeAsking ? beforeAsking(name, asked++) : 0; error != 0) {
                errno = error;
                return -1;
            }
        }
        return DirectoryCalls::live().extendedStatus(folder, name, status);
    };
    return calls;
}

class SharedFolders : public testing::Test {
protected:
    void TearDown() override {
        beforeAsking = {};
        beforeReading = {};
    }

    void makeMany(const std::string& in, int count) const {
        for (int index = 0; index < count; ++index)
            folder.makeFile(in + "many" + std::to_string(index * 7919 % 10007) + ".txt",
                            static_cast<std::uint64_t>(index % 5));
    }
    ScanResult scan(int workers, const DirectoryCalls& table, ScanOptions options = {},
                    bool buildsTree = true, const std::shared_ptr<LiveTree>& live = nullptr) const {
        options.workerCount = workers;
        ScanEngine engine(folder.path().string(), options, buildsTree, table);
        engine.show(live);
        return engine.run();
    }

    const test::TemporaryFolder folder;
};

void waitALittle() {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
}

std::string describeTree(const FileNode& root) {
    std::string text;
    root.forEachDescendant([&](const FileNode& node) {
        text += node.path() + " " + std::to_string(node.size) + " " + std::to_string(node.allocatedSize) +
                " " + std::to_string(node.fileCount()) + " " + std::to_string(node.directoryCount()) + " " +
                std::to_string(node.flags.rawValue()) + " " + std::to_string(rawValue(node.category)) + "\n";
        return true;
    });
    return text;
}

TEST_F(SharedFolders, AreWhatOneWorkerMakesOfThem) {
    test::makeRandomTree(folder.path(), 200, 5);
    makeMany("", 700);
    makeMany("wide/", 900);
    makeMany("wide/Some.app/", 300);
    for (int index = 0; index < 300; ++index) {
        folder.makeFile("wide/many-below" + std::to_string(index) + "/file", 3);
        folder.makeFolder("wide/links");
        std::filesystem::create_hard_link(
            folder / ("wide/many-below" + std::to_string(index) + "/file"),
            folder / ("wide/links/many" + std::to_string(index % 150 * 2) + "_" + std::to_string(index)));
    }
    folder.makeFile("wide/many-not/inside", 99);
    const auto oracle = test::measureFolder(folder.path());
    ScanOptions excluding;
    excluding.excludedPaths = {folder / "wide/many-not", folder / "wide/many-below7"};
    ScanOptions shallow;
    shallow.maximumDepth = 1;
    const ScanOptions variants[] = {{}, excluding, shallow};
    // Nobody late, everybody late, and every second one, so that owners wait for helpers and helpers for
    // them.
    const std::function<int(const char*, int)> delays[] = {
        {},
        [](const char*, int) { return waitALittle(), 0; },
        [](const char*, int) { return ::syscall(SYS_gettid) % 2 == 0 ? (waitALittle(), 0) : 0; }};
    for (const ScanOptions& options : variants) {
        beforeAsking = {};
        const ScanResult alone = scan(1, calls(), options);
        const std::string expected = describeTree(*alone.root);
        if (options == ScanOptions())
            test::expectAgreement(*alone.root, oracle);
        for (const int workers : {2, 16}) {
            for (const auto& delay : delays) {
                beforeAsking = delay;
                const DirectoryCalls table = calls();
                const auto live = std::make_shared<LiveTree>();
                const ScanResult result = scan(workers, table, options, true, live);
                EXPECT_EQ(describeTree(*result.root), expected) << workers;
                EXPECT_EQ(result.stats, alone.stats);
                // Where nobody is late, one worker may be done before another looks.
                EXPECT_TRUE(askers.size() > 1 || &delay != &delays[1]) << "nothing was shared";
                const auto page = live->look();
                ASSERT_TRUE(page);
                EXPECT_EQ(page->folder.bytes.size, alone.root->size);
                EXPECT_EQ(scan(workers, table, options, false).stats, alone.stats);
            }
        }
    }
}

// More files than are put in order at once, by one worker and by several: a few, listed again and again.
TEST_F(SharedFolders, AreInOrderWhenTheyAreHuge) {
    constexpr int files = 700;
    constexpr int listings = 100;
    makeMany("", files);
    static std::atomic<int> left;
    for (const int workers : {1, 4}) {
        left = listings - 1;
        DirectoryCalls table = DirectoryCalls::live();
        table.readPacked = [](int descriptor, std::byte* buffer, std::size_t size) {
            const long filled = DirectoryCalls::live().readPacked(descriptor, buffer, size);
            if (filled != 0 || left-- <= 0 || ::lseek(descriptor, 0, SEEK_SET) != 0)
                return filled;
            return DirectoryCalls::live().readPacked(descriptor, buffer, size);
        };
        const ScanResult result = scan(workers, table);
        const auto children = result.root->children();
        EXPECT_EQ(std::ssize(children), files * listings);
        EXPECT_EQ(std::set(children.begin(), children.end()).size(), children.size());
        EXPECT_TRUE(std::ranges::is_sorted(children, [](const FileNode* a, const FileNode* b) {
            return NodeSorter::precedes(*a, *b);
        })) << workers;
        EXPECT_EQ(result.root->size, files / 5 * (1 + 2 + 3 + 4) * listings);
    }
}

bool hasOneAsker() {
    const std::lock_guard guard(askersMutex);
    return askers.size() < 2;
}

// Whoever has nothing to do need not wait until the owner has dealt with its first records.
TEST_F(SharedFolders, AreSharedWithinATurn) {
    makeMany("wide/", 1500);
    static std::atomic<int> askedAlone = 0;
    beforeAsking = [](const char*, int before) {
        if (hasOneAsker()) {
            askedAlone = before;
            std::this_thread::sleep_for(std::chrono::milliseconds(before < 48 ? 1 : 20));
        }
        return 0;
    };
    DirectoryCalls table = calls();
    table.readPacked = DirectoryCalls::live().readPacked;
    EXPECT_EQ(scan(4, table).root->fileCount(), 1500);
    EXPECT_FALSE(hasOneAsker());
    EXPECT_LT(askedAlone, 90); // fewer than the shortest turn gives
}

TEST_F(SharedFolders, GrowOnlyWhileTheyAreLookedAt) {
    makeMany("wide/", 2000);
    folder.makeFile("wide/first", 5);
    std::filesystem::create_hard_link(folder / "wide/first", folder / "wide/many-second");
    beforeAsking = [](const char*, int) { return waitALittle(), 0; };
    const auto live = std::make_shared<LiveTree>();
    std::thread viewer([&] {
        std::int64_t last = 0;
        while (live->state() < LiveState::finished) {
            if (const auto page = live->look()) {
                EXPECT_GE(page->folder.bytes.size, last);
                last = page->folder.bytes.size;
            }
        }
    });
    const ScanResult result = scan(4, calls(), {}, true, live);
    viewer.join();
    EXPECT_EQ(result.root->size, 4005);
}

TEST_F(SharedFolders, AreWholeThoughCallsAreInterrupted) {
    makeMany("wide/", 1500);
    std::atomic<int> readings = 0;
    beforeAsking = [](const char*, int) { return waitALittle(), 0; };
    beforeReading = [&] { return ++readings % 3 == 0 ? EINTR : 0; };
    const ScanResult result = scan(4, calls());
    beforeReading = {}; // it must not outlive the count
    EXPECT_GT(askers.size(), 1u) << "nothing was shared";
    EXPECT_EQ(result.root->fileCount(), 1500);
    EXPECT_EQ(result.stats.inaccessibleCount, 0);
}

TEST_F(SharedFolders, FailAsOneWorkerDoes) {
    makeMany("wide/", 1500);
    folder.makeFile("elsewhere/file", 1);
    // Entries that cannot be asked about are marked, whoever asks.
    beforeAsking = [](const char* name, int) {
        waitALittle();
        return std::string_view(name).ends_with("7.txt") ? EACCES : 0;
    };
    const ScanResult alone = scan(1, calls());
    const ScanResult shared = scan(4, calls());
    EXPECT_GT(alone.stats.inaccessibleEntryCount, 100);
    EXPECT_EQ(describeTree(*shared.root), describeTree(*alone.root));
    EXPECT_EQ(shared.stats, alone.stats);

    // A folder that cannot be read to its end keeps what was read of it, and the scan goes on.
    static std::atomic<int> readings;
    for (const bool isInStatus : {false, true}) {
        readings = 0;
        beforeAsking = [=](const char*, int before) {
            waitALittle();
            return isInStatus && before == 700 ? ENOSYS : 0;
        };
        beforeReading = [=] { return !isInStatus && ++readings == 30 ? EIO : 0; };
        const ScanResult result = scan(4, calls());
        EXPECT_EQ(result.stats.inaccessibleCount, 1);
        ASSERT_EQ(result.inaccessiblePaths.size(), 1u);
        EXPECT_EQ(result.inaccessiblePaths.front(), folder / "wide");
        EXPECT_TRUE(result.root->node("wide")->flags.contains(FileNodeFlags::inaccessible));
        EXPECT_GT(result.root->node("wide")->fileCount(), 300);
        EXPECT_LT(result.root->node("wide")->fileCount(), 1500);
        EXPECT_EQ(result.root->size, result.stats.totalSize);
        EXPECT_NE(result.root->node("elsewhere/file"), nullptr);
        beforeReading = {};
    }
}

TEST_F(SharedFolders, EndWhenTheScanIsCancelledOrMemoryRunsOut) {
    makeMany("wide/", 1500);
    for (const int at : {3, 200, 201, 202, 700, 1499}) {
        beforeAsking = [=](const char*, int before) -> int {
            waitALittle();
            if (before == at)
                throw std::bad_alloc(); // in whoever it is, the owner or a helper
            return 0;
        };
        EXPECT_THROW(scan(4, calls()), std::bad_alloc);

        ScanOptions options;
        options.workerCount = 4;
        const DirectoryCalls table = calls();
        ScanEngine engine(folder.path().string(), options, true, table);
        beforeAsking = [&, at](const char*, int before) {
            waitALittle();
            if (before == at)
                engine.cancel();
            return 0;
        };
        EXPECT_THROW(engine.run(), ScanError);
        beforeAsking = {}; // it must not outlive the engine
        EXPECT_LE(asked, at + 4 * 48) << "each deals with one batch of entries, at most, after that";
    }
}

TEST_F(SharedFolders, MayChangeWhileTheyAreRead) {
    makeMany("wide/", 1500);
    beforeAsking = [this](const char*, int before) {
        waitALittle();
        const std::string name = "wide/new" + std::to_string(before / 2);
        if (before % 2 == 0)
            folder.makeFile(name, 1);
        else
            std::filesystem::remove(folder / ("wide/many" + std::to_string(before) + ".txt"));
        return 0;
    };
    const ScanResult result = scan(4, calls());
    EXPECT_EQ(result.root->size, result.stats.totalSize);
    EXPECT_EQ(result.root->fileCount(), result.stats.fileCount);
    const auto files = result.root->node("wide")->children();
    EXPECT_GE(result.root->fileCount() + result.stats.inaccessibleEntryCount, 700);
    EXPECT_TRUE(std::ranges::is_sorted(files, [](const FileNode* a, const FileNode* b) {
        return a->size != b->size ? a->size > b->size : a->name() < b->name();
    }));
}

} // namespace
} // namespace tarnwell
