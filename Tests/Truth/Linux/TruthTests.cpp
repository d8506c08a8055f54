// Scans against sums that the system's own tools make: of a folder made for it, and on demand of real ones,
//
//     TARNWELL_TRUTH=/usr:/var:/root build/release/bin/tarnwell-truth-tests
//
// What changes while it is compared is left out of the comparison, with all folders above it, and counted.

#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/FolderOracle.hpp"
#include "Tests/Support/JSONListing.hpp"
#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/PlainCSV.hpp"
#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Truth/Linux/FoundItems.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::OracleItem;
using test::OracleItems;

void compareListing(const std::string& csv, const fs::path& root, const OracleItems& items,
                    const std::set<std::string>& changed) {
    const auto rows = test::readCSV(csv);
    ASSERT_TRUE(rows.has_value());
    std::size_t seen = 0;
    std::string faults;
    for (std::size_t index = 1; index < rows->size(); ++index) {
        const std::vector<std::string>& row = (*rows)[index];
        const std::string& path = row.at(1);
        if (changed.contains(path))
            continue;
        ++seen;
        const auto item = items.find(path);
        const bool isRight = item != items.end() && (row.at(2) == "true") == item->second.isDirectory &&
                             row.at(3) == std::to_string(item->second.size) &&
                             row.at(4) == std::to_string(item->second.allocatedSize);
        if (!isRight && faults.size() < 10'000)
            faults += path + ": " + row.at(3) + " bytes, " + row.at(4) + " on disk\n";
    }
    EXPECT_EQ(faults, "");
    std::size_t expected = 0;
    for (const auto& [path, item] : items)
        expected += changed.contains(path) || path == root ? 0 : 1;
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
    const test::FoundItems before = test::find(folder);
    const ScanResult result = ScanEngine(folder, {}).run();
    const std::string csv = test::outputOf({TARNWELL_TOOL, "scan", folder, "--depth", "1000", "--csv"});
    const std::string json = test::outputOf({TARNWELL_TOOL, "scan", folder, "--depth", "1000", "--json"});
    const std::int64_t duSum = sumByDu(folder);
    const test::FoundItems after = test::find(folder);
    const std::set<std::string> changed = test::changedPaths(before, after);
    OracleItems items;
    for (const auto& [path, found] : after)
        items.emplace(path, found.item);
    items = test::summedUp(std::move(items));
    ASSERT_FALSE(items.empty());
    test::expectAgreement(*result.root, items, changed);
    compareListing(csv, folder, items, changed);
    if (changed.empty()) {
        const OracleItem& whole = items.at(folder);
        const auto listing = test::readJSONListing(json);
        ASSERT_TRUE(listing.has_value());
        EXPECT_EQ(listing->itemCount, items.size() - 1);
        EXPECT_EQ(listing->totalAllocatedSize, whole.allocatedSize);
        EXPECT_EQ(duSum, whole.allocatedSize + sumOfFolders(folder, whole.device));
    }
    std::cout << folder.string() << ": " << result.root->fileCount() << " files ("
              << result.stats.hardlinkDuplicateCount << " further names), " << result.root->directoryCount()
              << " folders, " << result.root->size << " bytes, " << result.root->allocatedSize << " on disk; "
              << changed.size() << " changed meanwhile\n";
}

TEST(Truth, AMadeFolder) {
    const test::TemporaryFolder folder;
    test::makeRandomTree(folder.path(), 3'000, 17);
    for (int byte = 1; byte < 256; ++byte)
        if (byte != '/' && byte != '.')
            (void)folder.makeFile("bytes/" + std::string(1, static_cast<char>(byte)), 1);
    for (const std::string name : {"...", "-rf", "a\nb", "\xED\xA0\x80"})
        (void)folder.makeFile("bytes/" + name, 1);
    (void)folder.makeFile("bytes/" + std::string(255, '\xFF'), 1);
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
