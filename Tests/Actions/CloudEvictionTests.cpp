#include "TarnwellCore/Actions/CloudEviction.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <gmock/gmock.h>

#include <limits>

namespace tarnwell {
namespace {

using testing::ElementsAre;

FileNodeAttributes file(std::int64_t size, std::int64_t allocatedSize, FileNodeFlags flags = {}) {
    FileNodeAttributes attributes;
    attributes.size = size;
    attributes.allocatedSize = allocatedSize;
    attributes.flags = flags;
    return attributes;
}

TEST(CloudEvictionTests, OnlyFilesWithLocalContentsOfTheirOwnCount) {
    FileTreeBuilder builder("/h/");
    FileNode& drive = builder.addFolder(builder.root(), "drive");
    const struct {
        FileNodeAttributes attributes;
        bool isEvictable;
    } cases[] = {
        {file(1, 1), true},
        {file(0, 4096), false},
        {file(5, 0), false},
        {file(5, -1), false},
        {file(5, 8, FileNodeFlags::hidden), true},
        {file(5, 8, FileNodeFlags::symlink), false},
        {file(5, 8, FileNodeFlags::hardlinkDuplicate), false},
        {file(5, 8, FileNodeFlags::special | FileNodeFlags::hidden), false},
        {file(5, 8, FileNodeFlags::dataless), false},
    };
    std::vector<const FileNode*> nodes;
    for (const auto& row : cases)
        nodes.push_back(&builder.addFile(drive, "f" + std::to_string(nodes.size()), row.attributes));
    const FileNode& outside = builder.addFile(builder.root(), "outside", file(5, 8));
    const auto root = builder.finish();

    const std::vector<SyncedRoot> roots{{CloudProvider::oneDrive, "/h/drive/"}};
    const auto prepared = SyncedRoots::prepare(roots);
    for (std::size_t index = 0; index < nodes.size(); ++index)
        EXPECT_EQ(CloudEviction::evictableItem(*nodes[index], prepared).has_value(), cases[index].isEvictable)
            << index;
    EXPECT_EQ(CloudEviction::evictableItem(*nodes[0], prepared),
              (EvictableItem{"/h/drive/f0", "f0", 1, CloudProvider::oneDrive}));
    EXPECT_EQ(CloudEviction::evictableItem(outside, prepared), std::nullopt);
    EXPECT_EQ(CloudEviction::evictableItem(drive, prepared), std::nullopt);
    EXPECT_EQ(CloudEviction::evictableAllocatedBytes(*root, roots), 9);
    EXPECT_EQ(CloudEviction::evictableAllocatedBytes(*nodes[4], roots), 8);
    EXPECT_EQ(CloudEviction::evictableAllocatedBytes(*root, {}), 0);
}

TEST(CloudEvictionTests, TheSummaryListsEveryFileLargestFirst) {
    FileTreeBuilder builder("/");
    FileNode& a = builder.addFolder(builder.root(), "a");
    FileNode& b = builder.addFolder(a, "b");
    builder.addFile(a, "of a", file(1, 10));
    builder.addFile(b, "z", file(1, 20));
    builder.addFile(b, "\xFF", file(1, 30));
    builder.addFile(b, "y", file(1, 20));
    builder.addFile(builder.addFolder(builder.root(), "ab"), "apart", file(1, 40));
    ScanResult result;
    result.root = builder.finish();
    // The inner root stands first, so it wins over the outer one; the third has nothing to do with the scan.
    const std::vector<SyncedRoot> roots{{CloudProvider::dropbox, "/a/b"},
                                        {CloudProvider::googleDrive, "/a"},
                                        {CloudProvider::other, "/elsewhere"}};
    const EvictionSummary summary = CloudEviction::evictableSummary(result, roots);
    EXPECT_EQ(summary.bytes, 80);
    EXPECT_EQ(summary.itemCount, 4);
    EXPECT_THAT(summary.items, ElementsAre(EvictableItem{"/a/b/\xFF", "\xFF", 30, CloudProvider::dropbox},
                                           EvictableItem{"/a/b/y", "y", 20, CloudProvider::dropbox},
                                           EvictableItem{"/a/b/z", "z", 20, CloudProvider::dropbox},
                                           EvictableItem{"/a/of a", "of a", 10, CloudProvider::googleDrive}));

    const std::vector<SyncedRoot> everything{{CloudProvider::other, "/"}};
    EXPECT_EQ(CloudEviction::evictableSummary(result, everything).itemCount, 5);
    EXPECT_EQ(CloudEviction::evictableSummary(ScanResult(), everything), EvictionSummary());
}

TEST(CloudEvictionTests, AScanBelowARootBelongsToItAndDepthDoesNotMatter) {
    FileTreeBuilder builder("/cloud/inside/scanned");
    FileNode* folder = &builder.root();
    for (int level = 0; level < 10'000; ++level)
        folder = &builder.addFolder(*folder, "d");
    builder.addFile(*folder, "deep", file(1, 5));
    const auto root = builder.finish();
    const std::vector<SyncedRoot> roots{{CloudProvider::other, "/cloud"}};
    EXPECT_EQ(CloudEviction::evictableAllocatedBytes(*root, roots), 5);
}

TEST(CloudEvictionDeathTest, ASumBeyondItsIntegerIsFatal) {
    FileTreeBuilder builder("/a");
    builder.addFile(builder.root(), "x", file(1, std::numeric_limits<std::int64_t>::max()));
    builder.addFile(builder.root(), "y", file(1, 1));
    const auto root = builder.finishWithoutAggregation();
    const std::vector<SyncedRoot> roots{{CloudProvider::other, "/a"}};
    EXPECT_DEATH(CloudEviction::evictableAllocatedBytes(*root, roots), "does not fit");
}

} // namespace
} // namespace tarnwell
