#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include "Tests/Support/FolderOracle.hpp"
#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <thread>

namespace tarnwell {
namespace {

using test::TemporaryFolder;

ScanResult scan(const std::filesystem::path& folder, const ScanOptions& options = {}) {
    return ScanEngine(folder.string(), options).run();
}

const FileNode& at(const ScanResult& result, std::string_view relativePath) {
    const FileNode* node = result.root->node(relativePath);
    if (node == nullptr)
        throw std::runtime_error("no node at " + std::string(relativePath));
    return *node;
}

/// One line a node: everything that must not depend on threads.
std::string describe(const ScanResult& result) {
    std::string text;
    result.root->forEachDescendant([&](const FileNode& node) {
        text += node.path() + " " + std::to_string(node.size) + " " + std::to_string(node.allocatedSize) +
                " " + std::to_string(node.reclaimableSize) + " " + std::to_string(node.fileCount()) + " " +
                std::to_string(node.directoryCount()) + " " + std::to_string(node.flags.rawValue()) + " " +
                std::to_string(rawValue(node.category)) + "\n";
        return true;
    });
    return text;
}

void expectStatsOfTree(const ScanResult& result) {
    const FileNode& root = *result.root;
    EXPECT_EQ(result.stats.totalSize, root.size);
    EXPECT_EQ(result.stats.totalAllocatedSize, root.allocatedSize);
    EXPECT_EQ(result.stats.totalReclaimableSize, root.reclaimableSize);
    EXPECT_EQ(result.stats.fileCount, root.fileCount());
    EXPECT_EQ(result.stats.directoryCount, root.directoryCount());
}

void expectStatsOfMeasurement(const std::filesystem::path& folder, ScanOptions options,
                              const ScanStats& stats) {
    const ScanResult measured = ScanEngine(folder.string(), std::move(options), false).run();
    EXPECT_EQ(measured.root, nullptr);
    EXPECT_EQ(measured.stats, stats);
}

TEST(ScanEngine, AgreesWithTheOracleForAnyNumberOfWorkers) {
    for (std::uint64_t seed = 1; seed <= 6; ++seed) {
        const TemporaryFolder folder;
        test::makeRandomTree(folder.path(), 400, seed);
        const auto oracle = test::measureFolder(folder.path());
        std::string first;
        for (const int workers : {1, 2, 3, 8}) {
            ScanOptions options;
            options.workerCount = workers;
            const ScanResult result = scan(folder.path(), options);
            SCOPED_TRACE("seed " + std::to_string(seed) + ", workers " + std::to_string(workers));
            test::expectAgreement(*result.root, oracle);
            expectStatsOfTree(result);
            expectStatsOfMeasurement(folder.path(), options, result.stats);
            const std::string text = describe(result);
            if (first.empty())
                first = text;
            EXPECT_EQ(text, first);
        }
    }
}

TEST(ScanEngine, MarksAndCountsEveryKindOfEntry) {
    const TemporaryFolder folder;
    folder.makeFile(".hidden", 10);
    folder.makeFile("Tool.app/Contents/binary", 20);
    folder.makeFile("node_modules/a/film.mp4", 30);
    folder.makeFile("photo.JPG", 40);
    ::symlink("photo.JPG", (folder / "link").c_str());
    ::mkfifo((folder / "pipe").c_str(), 0644);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder / "socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

    const ScanResult result = scan(folder.path());
    ::close(listener);
    const struct {
        const char* path;
        FileNodeFlags flags;
        FileCategory category;
    } items[] = {
        {".hidden", FileNodeFlags::hidden, FileCategory::other},
        {"Tool.app", FileNodeFlags::package, FileCategory::applications},
        {"node_modules", {}, FileCategory::developer},
        {"node_modules/a", {}, FileCategory::developer},
        {"node_modules/a/film.mp4", {}, FileCategory::developer},
        {"photo.JPG", {}, FileCategory::images},
        {"link", FileNodeFlags::symlink, FileCategory::other},
        {"pipe", FileNodeFlags::special, FileCategory::other},
        {"socket", FileNodeFlags::special, FileCategory::other},
    };
    for (const auto& each : items) {
        EXPECT_EQ(at(result, each.path).flags, each.flags) << each.path;
        EXPECT_EQ(at(result, each.path).category, each.category) << each.path;
    }
    EXPECT_EQ(at(result, "Tool.app").size, 20);
    EXPECT_EQ(at(result, "link").size, 9);
    EXPECT_EQ(result.stats.symlinkCount, 1);
    EXPECT_EQ(result.stats.packageCount, 1);
    EXPECT_EQ(result.stats.fileCount, 7);
    EXPECT_EQ(result.stats.directoryCount, 4);
    EXPECT_EQ(result.stats.maximumDepth, 2);
    EXPECT_TRUE(at(result, "photo.JPG").modificationDate());
    EXPECT_TRUE(at(result, "node_modules").accessDate());

    ScanOptions options;
    options.excludeHidden = true;
    EXPECT_EQ(scan(folder.path(), options).root->node(".hidden"), nullptr);
    EXPECT_EQ(scan(folder.path(), options).stats.fileCount, 6);

    // What is inside the folder whose name fixes a category keeps it when the scan starts there.
    EXPECT_EQ(at(scan(folder / "node_modules"), "a/film.mp4").category, FileCategory::developer);
}

TEST(ScanEngine, ExclusionsAreLeaves) {
    const TemporaryFolder folder;
    folder.makeFile("a/skip/file", 10);
    folder.makeFile("a/keep/file", 20);
    folder.makeFile("b/skip/file", 40);
    folder.makeFile("b/name/file", 80);
    folder.makeFile("one file", 160);
    ScanOptions options;
    options.excludedPaths = {folder / "a/skip", (folder / "one file").string() + "/", "/elsewhere",
                             folder.path().string()};
    options.excludedNames = {"name"};
    const ScanResult result = scan(folder.path(), options);
    EXPECT_EQ(result.root->size, 60);
    EXPECT_EQ(result.root->directoryCount(), 6);
    EXPECT_EQ(result.root->fileCount(), 3);
    for (const char* path : {"a/skip", "b/name", "one file"}) {
        EXPECT_TRUE(at(result, path).flags.contains(FileNodeFlags::excluded)) << path;
        EXPECT_TRUE(at(result, path).children().empty()) << path;
        EXPECT_EQ(at(result, path).size, 0) << path;
    }
    expectStatsOfTree(result);
    expectStatsOfMeasurement(folder.path(), options, result.stats);
}

TEST(ScanEngine, DepthLimitKeepsTheSums) {
    const TemporaryFolder folder;
    test::makeRandomTree(folder.path(), 500, 99);
    const ScanResult whole = scan(folder.path());
    for (const std::int64_t depth : {0, 1, 2, 3, 50}) {
        for (const int workers : {1, 4}) {
            ScanOptions options;
            options.maximumDepth = depth;
            options.workerCount = workers;
            const ScanResult result = scan(folder.path(), options);
            SCOPED_TRACE("depth " + std::to_string(depth));
            result.root->forEachDescendant([&](const FileNode& node) {
                EXPECT_LE(static_cast<std::int64_t>(node.depth()), depth);
                const FileNode& original = at(whole, node.path());
                EXPECT_EQ(node.size, original.size) << node.path();
                EXPECT_EQ(node.allocatedSize, original.allocatedSize) << node.path();
                EXPECT_EQ(node.reclaimableSize, original.reclaimableSize) << node.path();
                EXPECT_EQ(node.fileCount(), original.fileCount()) << node.path();
                EXPECT_EQ(node.directoryCount(), original.directoryCount()) << node.path();
                return true;
            });
            expectStatsOfTree(result);
        }
    }
}

TEST(ScanEngine, ClosedPackagesCarryTheirSums) {
    const TemporaryFolder folder;
    folder.makeFile("Tool.app/Contents/deep/binary", 100);
    folder.makeFile("Tool.app/Other.framework/library", 50);
    folder.makeFolder("Empty.app");
    ::link((folder / "Tool.app/Contents/deep/binary").c_str(), (folder / "outside").c_str());
    ::link((folder / "Tool.app/Other.framework/library").c_str(), (folder / "A first").c_str());
    ScanOptions options;
    options.descendIntoPackages = false;
    for (int round = 0; round < 10; ++round) {
        const ScanResult result = scan(folder.path(), options);
        const FileNode& package = at(result, "Tool.app");
        EXPECT_TRUE(package.flags.contains(FileNodeFlags::collapsed));
        EXPECT_TRUE(package.children().empty());
        // "Tool.app/…" precedes "outside", but "A first" precedes "Tool.app/…".
        EXPECT_EQ(package.size, 100);
        EXPECT_TRUE(at(result, "outside").isHardlinkDuplicate());
        EXPECT_FALSE(at(result, "A first").isHardlinkDuplicate());
        EXPECT_EQ(package.fileCount(), 2);
        EXPECT_EQ(package.directoryCount(), 3);
        EXPECT_EQ(result.root->size, 150);
        EXPECT_EQ(result.stats.packageCount, 3);
        EXPECT_FALSE(at(result, "Empty.app").flags.contains(FileNodeFlags::collapsed));
        expectStatsOfTree(result);
    }
}

TEST(ScanEngine, HardLinksBelongToTheSmallestPath) {
    const TemporaryFolder folder;
    const auto original = folder.makeFile("z/original", 1000);
    for (int index = 0; index < 200; ++index)
        ::link(original.c_str(), (folder.makeFolder("m" + std::to_string(index)) / "link").c_str());
    ::link(original.c_str(), (folder.makeFolder("a") / "owner").c_str());
    ScanOptions options;
    for (const int workers : {1, 2, 5, 8}) {
        options.workerCount = workers;
        const ScanResult result = scan(folder.path(), options);
        EXPECT_EQ(result.stats.hardlinkDuplicateCount, 201);
        EXPECT_EQ(result.stats.hardlinkSavedBytes, 201'000);
        EXPECT_EQ(at(result, "a").size, 1000);
        EXPECT_EQ(result.root->size, 1000);
        EXPECT_EQ(result.root->fileCount(), 202);
    }
    options.deduplicateHardlinks = false;
    EXPECT_EQ(scan(folder.path(), options).root->size, 202'000);
}

TEST(ScanEngine, RootsThatCannotBeScanned) {
    const TemporaryFolder folder;
    const std::string file = folder.makeFile("file");
    const std::string locked = folder.makeFolder("locked");
    ::symlink(folder.path().c_str(), (folder / "link").c_str());
    ::chmod(folder.path().c_str(), 0755);
    ::chmod(locked.c_str(), 0);
    const struct {
        std::string path;
        std::string description;
    } cases[] = {
        {folder / "missing", (folder / "missing").string() + " does not exist."},
        {file, file + " is not a folder."},
        {folder / "link", (folder / "link").string() + " is not a folder."},
        {locked, locked + " could not be opened (Permission denied). Tarnwell may need Full Disk Access."},
    };
    for (const auto& each : cases) {
        const std::string text = test::runUnprivileged([&]() -> std::string {
            try {
                ScanEngine(each.path, {}).run();
                return "scanned";
            } catch (const ScanError& error) {
                return error.what();
            }
        });
        EXPECT_EQ(text, each.description);
    }
}

TEST(ScanEngine, WhatMayNotBeReadIsMarkedAndCounted) {
    const struct {
        const char* file;
        const char* restricted;
        mode_t mode;
        bool descendsIntoPackages;
        const char* marked;
        /// Unreadable folders, unreadable entries, bytes, the flags of what is marked, unreadable paths.
        const char* report;
    } cases[] = {
        {"locked/secret", "locked", 0, true, "locked", "1 0 7 32 locked"},
        {"Locked.app/binary", "Locked.app", 0, true, "Locked.app", "1 0 7 34 Locked.app"},
        {"Locked.app/binary", "Locked.app", 0, false, "Locked.app", "1 0 7 34 Locked.app"},
#ifdef __linux__
        // Elsewhere a folder that may be listed but not searched may tell all of its entries, or nothing.
        {"list only/inner/file", "list only", 0444, true, "list only/inner", "0 1 7 32"},
#endif
    };
    for (const auto& each : cases) {
        const TemporaryFolder folder;
        folder.makeFile(each.file, 100);
        folder.makeFile("open/file", 7);
        ::chmod((folder / each.restricted).c_str(), each.mode);
        ::chmod(folder.path().c_str(), 0755);
        const std::string text = test::runUnprivileged([&] {
            ScanOptions options;
            options.descendIntoPackages = each.descendsIntoPackages;
            const ScanResult result = scan(folder.path(), options);
            const FileNode& marked = at(result, each.marked);
            std::string report = std::to_string(result.stats.inaccessibleCount) + " " +
                                 std::to_string(result.stats.inaccessibleEntryCount) + " " +
                                 std::to_string(result.root->size) + " " +
                                 (marked.isDirectory() ? std::to_string(marked.flags.rawValue()) : "a file");
            for (const std::string& path : result.inaccessiblePaths)
                report += " " + std::filesystem::path(path).filename().string();
            return report;
        });
        EXPECT_EQ(text, each.report) << each.file;
    }
}

// Kernel calls that change the disk between finding a folder and opening it.
std::function<void(const std::string&)> beforeOpening; // called with the name
int openAfterHook(int folder, const char* name, const std::int32_t* device) {
    if (beforeOpening)
        beforeOpening(name);
    return DirectoryCalls::live().openFolder(folder, name, device);
}

TEST(ScanEngine, FoldersThatChangeUnderTheScan) {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.openFolder = openAfterHook;
    ScanOptions options;
    options.workerCount = 1;
    for (const char* successor : {"nothing", "a file", "a link elsewhere"}) {
        SCOPED_TRACE(successor);
        const TemporaryFolder folder;
        folder.makeFile("victim/file", 100);
        folder.makeFile("stays/file", 30);
        const TemporaryFolder outside;
        outside.makeFile("a file", 5000);
        ::symlink(outside.path().c_str(), (outside / "a link elsewhere").c_str());
        beforeOpening = [&](const std::string& name) {
            if (name != "victim")
                return;
            std::filesystem::rename(folder / "victim", outside / "victim");
            const bool isReplaced = ::rename((outside / successor).c_str(), (folder / "victim").c_str()) == 0;
            EXPECT_EQ(isReplaced, successor != std::string_view("nothing"));
        };
        const ScanResult result = ScanEngine(folder.path(), options, true, calls).run();
        beforeOpening = nullptr;
        EXPECT_EQ(result.root->size, 30);
        EXPECT_EQ(result.stats.inaccessibleCount, 1);
        EXPECT_EQ(result.inaccessiblePaths, std::vector<std::string>{(folder / "victim").string()});
        EXPECT_TRUE(at(result, "victim").flags.contains(FileNodeFlags::inaccessible));
    }
}

// A file system that answers with sizes that fit no 64 bits, of a file, a folder, a mount point.
constexpr std::int64_t tooManyBlocks = std::int64_t{1} << 54;

int entryStatusWithOddSizes(int folder, const char* name, struct stat* status) {
    const int result = DirectoryCalls::live().entryStatus(folder, name, status);
    const std::string_view kind(name);
    if (kind.ends_with("blocks"))
        status->st_blocks = tooManyBlocks;
    if (kind.ends_with("size"))
        status->st_size = -1;
    if (kind.starts_with("mounted"))
        ++status->st_dev;
    return result;
}

DirectoryCalls oddSizes(bool inBulk) {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.entryStatus = entryStatusWithOddSizes;
    if (!inBulk)
        calls.readPacked = [](int, std::byte*, std::size_t) {
            errno = ENOTSUP;
            return -1L;
        };
#ifdef __linux__
    calls.extendedStatus = [](int folder, const char* name, void* place) {
        const int result = DirectoryCalls::live().extendedStatus(folder, name, place);
        struct stat odd = {};
        entryStatusWithOddSizes(folder, name, &odd);
        auto& status = *static_cast<struct statx*>(place);
        status.stx_blocks = static_cast<std::uint64_t>(odd.st_blocks);
        status.stx_size = static_cast<std::uint64_t>(odd.st_size);
        status.stx_dev_minor += std::string_view(name).starts_with("mounted") ? 1 : 0;
        return result;
    };
#endif
    return calls;
}

TEST(ScanEngine, SizesThatFitNo64BitsAreThoseOfUnreadableEntries) {
    const TemporaryFolder folder;
    folder.makeFile("file", 10);
    for (const char* name : {"file blocks", "file size"})
        folder.makeFile(name, 100);
    for (const char* name : {"folder blocks", "folder size", "mounted blocks"})
        folder.makeFile(std::string(name) + "/inner", 1000);
#if defined(__linux__) && !defined(TARNWELL_DARWIN_EMULATION)
    constexpr bool ways[] = {false, true};
#else
    constexpr bool ways[] = {false};
#endif
    for (const bool inBulk : ways) {
        const DirectoryCalls calls = oddSizes(inBulk);
        const ScanResult result = ScanEngine(folder.path(), {}, true, calls).run();
        EXPECT_EQ(result.stats.inaccessibleEntryCount, 5);
        EXPECT_EQ(result.stats.inaccessibleCount, 0);
        EXPECT_EQ(result.stats.fileCount, 1);
        EXPECT_EQ(result.root->size, 10);
        for (const FileNode* node : result.root->children())
            EXPECT_EQ(node->flags.contains(FileNodeFlags::inaccessible), node->name() != "file")
                << node->name();
        expectStatsOfTree(result);
        EXPECT_EQ(ScanEngine(folder.path(), {}, false, calls).run().stats, result.stats);
    }
}

int refusal;                       // the error of `openAfterRefusals`
std::atomic<int> refusalsLeft = 0; // how often it comes

TEST(ScanEngine, WaitsAMomentForDescriptors) {
    const struct {
        int error;
        int count;
        bool isRead;
    } cases[] = {{EMFILE, 50, true}, {ENFILE, 50, true}, {EMFILE, 1'000'000, false}, {EACCES, 1, false}};
    DirectoryCalls calls = DirectoryCalls::live();
    calls.openFolder = [](int folder, const char* name, const std::int32_t* device) {
        if (refusalsLeft-- <= 0)
            return DirectoryCalls::live().openFolder(folder, name, device);
        errno = refusal;
        return -1;
    };
    const TemporaryFolder folder;
    folder.makeFile("folder/file", 10);
    for (const auto& each : cases) {
        refusal = each.error;
        refusalsLeft = each.count;
        const ScanResult result = ScanEngine(folder.path(), {}, true, calls).run();
        EXPECT_EQ(result.root->size, each.isRead ? 10 : 0) << each.error << " " << each.count;
        EXPECT_EQ(result.stats.inaccessibleCount, each.isRead ? 0 : 1) << each.error << " " << each.count;
    }
}

TEST(ScanEngine, CancellationAtEveryStage) {
    const TemporaryFolder folder;
    test::makeRandomTree(folder.path(), 400, 11);
    static std::atomic<int> countdown;
    static ScanEngine* engine;
    DirectoryCalls calls = DirectoryCalls::live();
    if (calls.extendedStatus != nullptr)
        calls.extendedStatus = [](int parent, const char* name, void* status) {
            if (countdown.fetch_sub(1) == 1)
                engine->cancel();
            return DirectoryCalls::live().extendedStatus(parent, name, status);
        };
    else
        calls.readPacked = [](int parent, std::byte* buffer, std::size_t size) {
            if (countdown.fetch_sub(1) == 1)
                engine->cancel();
            return DirectoryCalls::live().readPacked(parent, buffer, size);
        };
    // What a kernel call delivers is still looked at: at most one folder for each worker.
    std::size_t widest = 0;
    scan(folder.path()).root->forEachDescendant([&](const FileNode& node) {
        widest = std::max(widest, node.children().size());
        return true;
    });
    int cancelled = 0;
    for (int stage = 0; stage <= 400; stage += 1 + stage / 8) {
        ScanOptions options;
        options.workerCount = 1 + stage % 4;
        ScanEngine each(folder.path(), options, stage % 2 == 0, calls);
        engine = &each;
        countdown = stage;
        if (stage == 0)
            each.cancel();
        try {
            each.run();
        } catch (const ScanError& error) {
            EXPECT_EQ(error.kind(), ScanError::Kind::cancelled);
            EXPECT_STREQ(error.what(), "The scan was cancelled.");
            ++cancelled;
            EXPECT_LE(-countdown, static_cast<int>(widest) * *options.workerCount);
        }
    }
    EXPECT_GT(cancelled, 20);
    EXPECT_LT(widest * 4, 300u); // or the bound above would say nothing
}

/// What this process may open, until the end of a test.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t count) {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit limit = {count, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit before_ = {};
};

/// A chain of folders below a folder, however long its paths become; no two have one name, so that none is
/// taken for another. `add` puts more into each of them, given its descriptor and its level.
void makeChain(const std::filesystem::path& top, int depth, const std::function<void(int, int)>& add,
               std::size_t nameLength = 0) {
    int folder = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 1; level <= depth; ++level) {
        std::string name = "level " + std::to_string(level);
        name.resize(std::max(name.size(), nameLength), 'x');
        EXPECT_EQ(::mkdirat(folder, name.c_str(), 0755), 0);
        const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(folder);
        folder = next;
        add(folder, level);
    }
    ::close(folder);
}

TEST(ScanEngine, RunsWithFewDescriptors) {
    const struct {
        int depth;
        rlim_t limit;
        int scans; // at once: they share what there is
    } cases[] = {
        {60, 20, 1},
        // Were every folder opened from the last one that kept its descriptor, this would be millions of
        // steps.
        {3000, 256, 3},
    };
    for (const auto& each : cases) {
        const TemporaryFolder folder;
        ::chmod(folder.path().c_str(), 0755);
        // At every level a sibling waits, so that every level wants to keep its descriptor.
        makeChain(folder.path(), each.depth, [](int parent, int level) {
            EXPECT_EQ(::mkdirat(parent, std::to_string(level).c_str(), 0755), 0);
        });
        const std::string text = test::runUnprivileged([&] {
            const DescriptorLimit limit(each.limit);
            std::atomic<int> wholeScans = 0;
            std::vector<std::thread> threads;
            for (int index = 0; index < each.scans; ++index)
                threads.emplace_back([&] {
                    const ScanResult result = scan(folder.path());
                    wholeScans += result.root->directoryCount() == 2 * each.depth &&
                                  result.stats.inaccessibleCount == 0;
                });
            for (std::thread& thread : threads)
                thread.join();
            return std::to_string(wholeScans);
        });
        EXPECT_EQ(text, std::to_string(each.scans)) << each.depth << " levels";
    }
}

TEST(ScanEngine, ThePathsOfADeepChainsUnreadableFoldersAreBounded) {
    const TemporaryFolder folder;
    ::chmod(folder.path().c_str(), 0755);
    constexpr int depth = 700; // 60 MB of paths
    makeChain(
        folder.path(), depth, [](int parent, int) { EXPECT_EQ(::mkdirat(parent, "closed", 0), 0); }, 255);
    const std::string text = test::runUnprivileged([&] {
        const ScanResult result = scan(folder.path());
        const std::vector<std::string>& paths = result.inaccessiblePaths;
        std::size_t bytes = 0;
        for (const std::string& path : paths)
            bytes += path.size();
        return std::to_string(result.stats.inaccessibleCount) +
               (std::ranges::is_sorted(paths) ? " sorted " : " mixed ") + std::to_string(bytes >> 24);
    });
    EXPECT_EQ(text, std::to_string(depth) + " sorted 1") << "or not between 16 and 32 MiB";
}

TEST(ScanEngine, ChainsBeyondPathMax) {
    const TemporaryFolder folder;
    constexpr int depth = 10'000;
    makeChain(folder.path(), depth, [](int parent, int level) {
        if (level % 100 == 0) {
            EXPECT_EQ(::symlinkat("0123456789", parent, "link"), 0);
        }
    });
    ScanOptions options;
    std::string deep;
    for (const int workers : {1, 4}) {
        options.workerCount = workers;
        const ScanResult result = scan(folder.path(), options);
        EXPECT_EQ(result.root->directoryCount(), depth);
        EXPECT_EQ(result.root->fileCount(), depth / 100);
        EXPECT_EQ(result.root->size, depth / 10);
        EXPECT_EQ(result.stats.maximumDepth, depth);
        EXPECT_EQ(result.stats.inaccessibleCount, 0);
        for (const FileNode* node = result.root.get(); node->directoryCount() >= 200;
             node = node->children().front())
            deep = node->directoryCount() == 200 ? node->path() : "";
    }
    // The chain's end is a root like any other.
    ASSERT_GT(deep.size(), 40'000u);
    const ScanResult end = scan(deep);
    EXPECT_EQ(end.root->directoryCount(), 200);
    EXPECT_EQ(end.root->path(), deep);
}

#ifdef __linux__
TEST(ScanEngineDeathTest, SumsBeyond64BitsAreFatal) {
    // A child of the "fast" style starts here, not at the top: it leaves no folder behind.
    GTEST_FLAG_SET(death_test_style, "fast");
    const TemporaryFolder folder("/dev/shm");
    for (const char* name : {"a", "b"}) {
        const int file = ::open((folder / name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
        const bool isMade = ::ftruncate(file, std::numeric_limits<off_t>::max()) == 0;
        ::close(file);
        if (!isMade)
            GTEST_SKIP() << "no file system at hand for files near 2^63 bytes";
    }
    EXPECT_DEATH(scan(folder.path()), "fatal error: a sum of sizes");
}
#endif

TEST(ScanEngine, DefaultWorkerCounts) {
    const std::pair<int, int> cases[] = {{1, 4}, {7, 4}, {9, 4}, {10, 5}, {17, 8}, {64, 8}};
    for (const auto& [processors, workers] : cases)
        EXPECT_EQ(ScanEngine::defaultWorkerCount(processors), workers) << processors;
}

} // namespace
} // namespace tarnwell
