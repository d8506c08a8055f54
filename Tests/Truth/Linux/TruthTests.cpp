// Scans against sums that the system's own tools make: of a folder made for it, and on demand of real ones,
//
//     TARNWELL_TRUTH=/usr:/var:/root build/release/bin/tarnwell-truth-tests
//
// What changes while it is compared is left out of the comparison, with all folders above it, and counted.

#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/PlainCSV.hpp"
#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Truth/Linux/FoundItems.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::FoundItem;
using test::FoundItems;

/// Gathers what is not as it should be, and says so once.
class Differences {
public:
    void add(const std::string& path, const std::string& what, std::int64_t seen, std::int64_t expected) {
        if (++count_ <= 20)
            text_ += path + ": " + what + " is " + std::to_string(seen) + ", not " +
                     std::to_string(expected) + "\n";
    }
    void expectEqual(const std::string& path, const char* what, std::int64_t seen, std::int64_t expected) {
        if (seen != expected)
            add(path, what, seen, expected);
    }
    void expectNone() const { EXPECT_EQ(count_, 0) << text_; }

private:
    int count_ = 0;
    std::string text_;
};

/// One look at a folder: what is there for certain, as it stayed the same all the while.
class SteadyItems {
public:
    SteadyItems(const fs::path& folder, const std::function<void()>& meanwhile) {
        const FoundItems before = test::find(folder);
        meanwhile();
        const FoundItems after = test::find(folder);
        changed_ = test::changedPaths(before, after);
        items_ = test::summedUp(after);
    }

    /// Null for what may be anything.
    const FoundItem* find(const std::string& path) const {
        const auto item = items_.find(path);
        return item == items_.end() || changed_.contains(path) ? nullptr : &item->second;
    }
    bool mayBeAnything(const std::string& path) const { return changed_.contains(path); }
    const FoundItems& all() const { return items_; }
    std::size_t changedCount() const { return changed_.size(); }

private:
    FoundItems items_;
    std::set<std::string> changed_;
};

void compareTree(const ScanResult& result, const SteadyItems& items, Differences& differences) {
    std::size_t seen = 0;
    result.root->forEachDescendant([&](const FileNode& node) {
        const std::string path = node.path();
        const FoundItem* item = items.find(path);
        if (item == nullptr) {
            if (!items.mayBeAnything(path))
                differences.add(path, "listed", 1, 0);
            return true;
        }
        ++seen;
        differences.expectEqual(path, "folder", node.isDirectory(), item->isDirectory);
        differences.expectEqual(path, "size", node.size, item->size);
        differences.expectEqual(path, "allocated size", node.allocatedSize, item->allocatedSize);
        differences.expectEqual(path, "further name", node.isHardlinkDuplicate(), item->isFurtherName);
        if (node.isDirectory()) {
            differences.expectEqual(path, "file count", node.fileCount(), item->fileCount);
            differences.expectEqual(path, "folder count", node.directoryCount(), item->directoryCount);
        }
        return true;
    });
    std::size_t expected = 0;
    for (const auto& [path, item] : items.all())
        expected += items.mayBeAnything(path) ? 0 : 1;
    EXPECT_EQ(seen, expected);
}

void compareListing(const std::string& csv, const fs::path& root, const SteadyItems& items,
                    Differences& differences) {
    const auto rows = test::readCSV(csv);
    ASSERT_TRUE(rows.has_value());
    std::size_t seen = 0;
    for (std::size_t index = 1; index < rows->size(); ++index) {
        const std::vector<std::string>& row = (*rows)[index];
        const std::string& path = row.at(1);
        const FoundItem* item = items.find(path);
        if (item == nullptr) {
            if (!items.mayBeAnything(path))
                differences.add(path, "listed", 1, 0);
            continue;
        }
        ++seen;
        differences.expectEqual(path, "listed as folder", row.at(2) == "true", item->isDirectory);
        differences.expectEqual(path, "listed size", std::stoll(row.at(3)), item->size);
        differences.expectEqual(path, "listed allocated size", std::stoll(row.at(4)), item->allocatedSize);
    }
    std::size_t expected = 0;
    for (const auto& [path, item] : items.all())
        expected += items.mayBeAnything(path) || path == root ? 0 : 1;
    EXPECT_EQ(seen, expected);
}

/// What `du` makes of a folder: it counts the folders themselves, too, and says only the sum of all.
std::int64_t sumByDu(const fs::path& folder) {
    return std::stoll(test::outputOf({"sh", "-c", "du -s -x -B1 \"$1\" 2>/dev/null || :", "sh", folder}));
}

std::int64_t sumOfFolders(const fs::path& folder, std::uint64_t device) {
    std::istringstream lines(test::outputOf({"find", folder, "-xdev", "-type", "d", "-printf", "%D %b\\n"}));
    std::int64_t sum = 0;
    std::uint64_t each = 0;
    for (std::int64_t blocks = 0; lines >> each >> blocks;)
        sum += each == device ? blocks * 512 : 0;
    return sum;
}

void expectTruth(const fs::path& folder) {
    SCOPED_TRACE(folder.string());
    ScanResult result;
    std::string csv;
    std::int64_t duSum = 0;
    const SteadyItems items(folder, [&] {
        result = ScanEngine(folder, {}).run();
        csv = test::outputOf({TARNWELL_TOOL, "scan", folder, "--depth", "1000", "--csv"});
        duSum = sumByDu(folder);
    });
    ASSERT_FALSE(items.all().empty());
    Differences differences;
    compareTree(result, items, differences);
    compareListing(csv, folder, items, differences);
    differences.expectNone();
    if (items.changedCount() == 0) {
        const FoundItem& whole = *items.find(folder);
        EXPECT_EQ(duSum, whole.allocatedSize + sumOfFolders(folder, whole.device));
    }
    std::cout << folder.string() << ": " << result.root->fileCount() << " files ("
              << result.stats.hardlinkDuplicateCount << " further names), " << result.root->directoryCount()
              << " folders, " << result.root->size << " bytes, " << result.root->allocatedSize << " on disk; "
              << items.changedCount() << " changed meanwhile\n";
}

TEST(Truth, AMadeFolder) {
    const test::TemporaryFolder folder;
    test::makeRandomTree(folder.path(), 3'000, 17);
    expectTruth(folder.path());
}

TEST(Truth, ChosenFolders) {
    const char* chosen = std::getenv("TARNWELL_TRUTH");
    if (chosen == nullptr)
        GTEST_SKIP() << "TARNWELL_TRUTH names no folders, such as /usr:/var";
    std::istringstream names(chosen);
    for (std::string name; std::getline(names, name, ':');)
        expectTruth(fs::canonical(name));
}

void copyPart(const fs::path& from, const fs::path& to, const std::string& range) {
    (void)test::outputOf({"xfs_io", "-f", "-c", "reflink " + from.string() + " " + range, to});
}

TEST(Truth, PrivateSizes) {
    const auto image = test::MountedImage::make({.type = "btrfs"});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path folder = (*image)->path() / "files";
    fs::create_directory(folder);
    try {
        for (int index = 0; index < 40; ++index) {
            const std::string number = std::to_string(index);
            const std::string source = folder / ("file-" + number);
            (void)test::outputOf({"dd", "if=/dev/urandom", "of=" + source, "bs=4096", "status=none",
                                  "count=" + std::to_string(index * 7 % 60)});
            if (index % 2 == 0)
                (void)test::outputOf({"cp", "--reflink=always", source, folder / ("clone-" + number)});
            if (index % 4 == 0 && index * 7 % 60 > 8)
                copyPart(source, folder / ("part-" + number), "8192 4096 24576");
        }
        (void)test::outputOf({"sync", "-f", folder});
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << error.what();
    }
    const ScanResult result = ScanEngine(folder, {}).run();
    std::istringstream lines(test::outputOf({"btrfs", "filesystem", "du", "--raw", folder}));
    std::string line;
    std::getline(lines, line); // the head
    std::size_t compared = 0;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::int64_t total = 0;
        std::int64_t exclusive = 0;
        std::string setShared;
        std::string path;
        words >> total >> exclusive >> setShared >> std::ws;
        std::getline(words, path);
        const FileNode* node = result.root->node(fs::path(path).filename().string());
        if (path == folder || node == nullptr)
            continue;
        ++compared;
        EXPECT_EQ(node->allocatedSize, total) << path;
        EXPECT_EQ(node->allocatedSize - node->sharedWithClones(), exclusive) << path;
    }
    EXPECT_EQ(compared, result.root->children().size());
}

} // namespace
} // namespace tarnwell
