#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

using testing::ElementsAre;

ScanResult resultOf(std::shared_ptr<FileNode> root) {
    ScanResult result;
    result.root = std::move(root);
    return result;
}

std::vector<std::string> paths(const ScanSnapshot& snapshot) {
    std::vector<std::string> paths;
    for (const ScanSnapshot::Entry& entry : snapshot.entries)
        paths.push_back(entry.path);
    return paths;
}

TEST(ScanSnapshot, RemembersTheTotalsOfTheScanAndTheSizesOfTheItems) {
    FileTreeBuilder builder("/home/alice");
    FileNodeAttributes attributes;
    attributes.size = 3'000'000;
    attributes.allocatedSize = 2'000'000;
    attributes.privateSize = 1'000'000;
    attributes.reportsPrivateSize = true;
    builder.addFile(builder.addFolder(builder.root(), "folder"), "file", attributes);
    ScanResult result = resultOf(builder.finish());
    result.stats = {.totalSize = 11,
                    .totalAllocatedSize = 12,
                    .totalReclaimableSize = 13,
                    .fileCount = 14,
                    .directoryCount = 15};

    const Date before = currentDate();
    const ScanSnapshot snapshot = ScanSnapshot::capture(result, 4, 1'000'000);
    EXPECT_TRUE(snapshot.createdAt >= before && snapshot.createdAt <= currentDate());
    EXPECT_NE(snapshot.id, ScanSnapshot::capture(result, 4, 1'000'000).id);
    EXPECT_EQ(snapshot.rootPath, "/home/alice");
    EXPECT_EQ(snapshot.totalSizeFor(SizeMode::apparent), 11);
    EXPECT_EQ(snapshot.totalSizeFor(SizeMode::allocated), 12);
    EXPECT_EQ(snapshot.totalSizeFor(SizeMode::reclaimable), 13);
    EXPECT_EQ(snapshot.totalFiles, 14);
    EXPECT_EQ(snapshot.minimumSize, 1'000'000);
    const auto item = [](const char* path, bool isDirectory) {
        return ScanSnapshot::Entry{path, 3'000'000, 2'000'000, 1'000'000, 1, isDirectory};
    };
    EXPECT_THAT(snapshot.entries,
                ElementsAre(item("", true), item("folder", true), item("folder/file", false)));
    EXPECT_EQ(snapshot.entries[2].sizeFor(SizeMode::allocated), 2'000'000);
}

TEST(ScanSnapshot, ChainsMayBeDeep) {
    constexpr int depth = 20'000;
    FileTreeBuilder builder("/");
    FileNode* folder = &builder.root();
    for (int level = 0; level < depth; ++level)
        folder = &builder.addFolder(*folder, "d");
    builder.addFile(*folder, "file", 7);
    const ScanResult result = resultOf(builder.finish());
    const ScanSnapshot snapshot = ScanSnapshot::capture(result, std::numeric_limits<std::int64_t>::max(),
                                                        8); // only the root reaches it
    EXPECT_EQ(snapshot.entries.size(), 1u);
    EXPECT_EQ(ScanSnapshot::capture(result, depth / 100, 7).entries.back().path.size(), 2u * depth / 100 - 1);
}

/// The rule of the capture as it is told, one node at a time.
void captureSlowly(const FileNode& node, const std::string& path, int depth, int maxDepth, std::int64_t floor,
                   std::vector<std::string>& paths) {
    if (path.empty() || node.size >= floor)
        paths.push_back(path);
    if (depth < maxDepth)
        for (const FileNode* child : node.children())
            captureSlowly(*child,
                          path.empty() ? std::string(child->name()) : path + "/" + std::string(child->name()),
                          depth + 1, maxDepth, floor, paths);
}

TEST(ScanSnapshot, KeepsWhatReachesTheFloorDownToTheDepth) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        FileTreeBuilder builder(seed % 2 == 0 ? "/" : "/tree");
        std::vector<FileNode*> folders{&builder.root()};
        for (auto item = random() % 60; item > 0; --item) {
            FileNode& parent = *folders[random() % folders.size()];
            const std::string name = (random() % 4 == 0 ? "\xff" : "n") + std::to_string(item);
            if (random() % 2 == 0)
                folders.push_back(&builder.addFolder(parent, name));
            else if (FileNode& file = builder.addFile(parent, name, random() % 10); random() % 4 == 0)
                file.flags.insert(FileNodeFlags::hardlinkDuplicate); // may be larger than its folder
        }
        const ScanResult result = resultOf(builder.finish());
        const int maxDepth = static_cast<int>(random() % 8) - 1;
        const std::int64_t floor = random() % 12;
        std::vector<std::string> expected;
        captureSlowly(*result.root, "", 0, maxDepth, floor, expected);
        EXPECT_EQ(paths(ScanSnapshot::capture(result, maxDepth, floor)), expected) << "seed " << seed;
    }
    EXPECT_TRUE(ScanSnapshot::capture({}, 4, 1).entries.empty()) << "a measurement has no tree";
}

TEST(ScanSnapshot, EqualEntriesHashAlike) {
    const ScanSnapshot::Entry entry{"a", 1, 2, 3, 4, true};
    const std::hash<ScanSnapshot::Entry> hash;
    EXPECT_EQ(hash(entry), hash(ScanSnapshot::Entry(entry)));
    EXPECT_NE(hash(entry), hash({"a", 1, 2, 3, 4, false}));
}

} // namespace
} // namespace tarnwell
