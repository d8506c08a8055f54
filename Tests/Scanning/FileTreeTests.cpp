#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {
namespace {

FileNodeAttributes sizes(std::int64_t size, std::int64_t allocated, FileNodeFlags flags = {}) {
    FileNodeAttributes attributes;
    attributes.size = size;
    attributes.allocatedSize = allocated;
    attributes.flags = flags;
    return attributes;
}

std::vector<std::string> childNames(const FileNode& folder) {
    std::vector<std::string> names;
    for (const FileNode* child : folder.children())
        names.emplace_back(child->name());
    return names;
}

TEST(FileNode, ReclaimableBytesOfOneEntry) {
    const struct {
        std::int64_t allocated;
        std::int64_t privateSize;
        bool reportsPrivateSize;
        bool dataless;
        std::int64_t reclaimable;
        std::int64_t shared;
    } cases[] = {
        {4096, 0, false, false, 4096, 0},      {4096, 0, true, false, 0, 4096},
        {4096, 1024, true, false, 1024, 3072}, {4096, -5, true, false, 0, 4101},
        {-4096, 0, false, false, 0, 0},        {4096, 4096, true, true, 0, 0},
        {100, 200, true, false, 200, 0},
    };
    FileTreeBuilder tree("/r");
    for (const auto& each : cases) {
        FileNodeAttributes attributes = sizes(10, each.allocated);
        attributes.privateSize = each.privateSize;
        attributes.reportsPrivateSize = each.reportsPrivateSize;
        attributes.extFlags = mayShareBlocksFlag;
        if (each.dataless)
            attributes.flags.insert(FileNodeFlags::dataless);
        const FileNode& node = tree.addFile(tree.root(), "f", attributes);
        EXPECT_EQ(node.reclaimableSize, each.reclaimable);
        EXPECT_EQ(node.sharedWithClones(), each.shared);
        EXPECT_TRUE(node.includesSharedCloneBlocks);
    }
}

TEST(FileNode, PathsOfAllKindsOfRoots) {
    const struct {
        const char* root;
        const char* rootPath;
        const char* childPath;
        const char* rootDisplayName;
    } cases[] = {
        {"/", "/", "/x", "/"},
        {"/a/b", "/a/b", "/a/b/x", "b"},
        {"/a/b/", "/a/b/", "/a/b/x", "b"},
        {"rel", "rel", "rel/x", "rel"},
        {"", "/", "/x", ""},
    };
    for (const auto& each : cases) {
        FileTreeBuilder tree(each.root);
        const FileNode& child = tree.addFolder(tree.root(), "x");
        EXPECT_EQ(tree.root().path(), each.rootPath);
        EXPECT_EQ(child.path(), each.childPath);
        EXPECT_EQ(tree.root().displayName(), each.rootDisplayName);
        EXPECT_EQ(child.displayName(), "x");
    }
}

TEST(FileNode, PlaceInTheTree) {
    FileTreeBuilder tree("/r");
    FileNode& a = tree.addFolder(tree.root(), "a");
    FileNode& b = tree.addFolder(a, "b");
    FileNode& file = tree.addFile(b, "f", 30);
    tree.addFile(a, "g", 10);
    tree.addFolder(tree.root(), "empty");
    const auto root = tree.finish();

    EXPECT_EQ(file.depth(), 3u);
    EXPECT_EQ(&file.root(), root.get());
    EXPECT_EQ(file.ancestors(), (std::vector<const FileNode*>{&b, &a, root.get()}));
    EXPECT_EQ(file.breadcrumb(), (std::vector<const FileNode*>{root.get(), &a, &b, &file}));
    EXPECT_DOUBLE_EQ(b.percentOfParent(), 0.75);
    EXPECT_DOUBLE_EQ(file.percentOfRoot(), 0.75);
    EXPECT_EQ(root->percentOfParent(), 0);
    EXPECT_EQ(root->percentOfRoot(), 1);

    const struct {
        const FileNode* from;
        const char* path;
        const FileNode* found;
    } lookups[] = {
        {root.get(), "/r", root.get()},
        {root.get(), "/r/a/b/f", &file},
        {root.get(), "a//b/", &b},
        {&a, "/r/a/b", &b},
        {&a, "b/f", &file},
        {&a, "/r/empty", nullptr},
        {root.get(), "/ra", nullptr},
        {root.get(), "/r/a/b/f/x", nullptr},
    };
    for (const auto& each : lookups)
        EXPECT_EQ(each.from->node(each.path), each.found) << each.path;

    FileTreeBuilder empty("/e");
    EXPECT_EQ(empty.addFile(empty.root(), "zero", 0).percentOfRoot(), 0);
}

TEST(FileNode, Queries) {
    FileTreeBuilder tree("/r");
    FileNode& modules = tree.addFolder(tree.root(), "node_modules");
    tree.addFolder(modules, "node_modules");
    FileNode& project = tree.addFolder(tree.root(), "project");
    FileNode& inner = tree.addFolder(project, "node_modules");
    FileNode& film = tree.addFile(project, "film.mp4", 900);
    FileNode& song = tree.addFile(inner, "song.mp3", 500);
    FileNode& other = tree.addFile(project, "other.mp3", 500);
    FileNode& link = tree.addFile(project, "link.mp4", sizes(900, 900, FileNodeFlags::hardlinkDuplicate));
    tree.addFile(project, "lost.mp4", sizes(70, 70, FileNodeFlags::inaccessible));
    const auto root = tree.finish();
    using testing::UnorderedElementsAre;

    EXPECT_THAT(root->outermostDirectories("node_modules"), UnorderedElementsAre(&modules, &inner));
    EXPECT_EQ(modules.outermostDirectories("node_modules").size(), 1u);
    EXPECT_TRUE(root->largestFiles(10, 901).empty());
    EXPECT_TRUE(root->largestFiles(0, 0).empty());
    const auto walk = root->descendants(1000);
    EXPECT_EQ(walk.size(), 9u);
    EXPECT_THAT(root->largestFiles(1, 0),
                testing::ElementsAre(*std::ranges::find(walk, 900, &FileNode::size))); // the first of two
    EXPECT_THAT(root->largestFiles(100, 500), UnorderedElementsAre(&film, &link, &song, &other));
    EXPECT_TRUE(std::ranges::is_sorted(root->largestFiles(100, 0), std::greater(), &FileNode::size));

    using Breakdown = std::map<FileCategory, std::int64_t>;
    EXPECT_EQ(root->categoryBreakdown(false),
              (Breakdown{{FileCategory::video, 900}, {FileCategory::audio, 1000}}));
    EXPECT_EQ(link.categoryBreakdown(true), (Breakdown{{FileCategory::video, 900}}));

    EXPECT_EQ(root->descendants(3).size(), 3u);
    root->detachDescendants();
    EXPECT_TRUE(root->children().empty());
    EXPECT_EQ(song.parent(), nullptr);
}

TEST(Aggregation, CountsWhatCounts) {
    FileTreeBuilder tree("/r");
    FileNode& lost = tree.addFolder(tree.root(), "lost");
    tree.addFile(lost, "gone", sizes(5, 5, FileNodeFlags::inaccessible));
    FileNode& links = tree.addFolder(tree.root(), "links");
    tree.addFile(links, "duplicate", sizes(100, 200, FileNodeFlags::hardlinkDuplicate));
    FileNodeAttributes clone = sizes(7, 8);
    clone.extFlags = sharesAllBlocksFlag;
    clone.reportsPrivateSize = true;
    tree.addFile(links, "clone", clone);
    FileNodeAttributes given = sizes(1000, 2000, FileNodeFlags::collapsed);
    FileNode& package = tree.addFolder(tree.root(), "given", given);
    package.counts().files = 12;
    package.counts().directories = 3;
    FileNode& ownSize = tree.addFolder(tree.root(), "own size", sizes(4096, 4096));
    const auto root = tree.finish();

    EXPECT_EQ(lost.fileCount(), 0);
    EXPECT_EQ(lost.size, 0);
    EXPECT_EQ(links.fileCount(), 2);
    EXPECT_EQ(links.size, 7);
    EXPECT_EQ(links.allocatedSize, 8);
    EXPECT_EQ(links.reclaimableSize, 0);
    EXPECT_TRUE(links.includesSharedCloneBlocks);
    EXPECT_EQ(ownSize.size, 0);
    EXPECT_EQ(root->size, 1007);
    EXPECT_EQ(root->allocatedSize, 2008);
    EXPECT_EQ(root->reclaimableSize, 2000);
    EXPECT_EQ(root->fileCount(), 14);
    EXPECT_EQ(root->directoryCount(), 7);
    EXPECT_TRUE(root->includesSharedCloneBlocks);
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"given", "links", "lost", "own size"}));
}

TEST(Aggregation, AgreesWithThePlainWayOnRandomTrees) {
    for (std::uint64_t seed = 1; seed <= 60; ++seed) {
        std::mt19937_64 random(seed);
        FileTreeBuilder tree("/r");
        std::vector<FileNode*> folders{&tree.root()};
        const bool isLarge = seed % 12 == 0; // with more subtrees than threads are given to begin with
        const int count = static_cast<int>(isLarge ? 6000 : random() % 400);
        for (int item = 0; item < count; ++item) {
            FileNode& parent = *folders[random() % folders.size()];
            const std::string name = std::to_string(random() % 1000);
            const auto size = static_cast<std::int64_t>(random() % 50); // many ties
            if (random() % 4 == 0)
                folders.push_back(&tree.addFolder(parent, name));
            else
                tree.addFile(parent, name,
                             sizes(size, size,
                                   random() % 8 == 0 ? FileNodeFlags::hardlinkDuplicate : FileNodeFlags()));
        }
        aggregate(tree.root(), static_cast<int>(isLarge ? 3 : 1 + seed % 2));
        const auto root = tree.finishWithoutAggregation();
        for (const FileNode* folder : folders) {
            std::int64_t size = 0;
            std::int64_t fileCount = 0;
            std::int64_t directoryCount = -1; // the folder itself
            folder->forEachDescendant([&](const FileNode& node) {
                size += node.isDirectory() || node.isHardlinkDuplicate() ? 0 : node.size;
                ++(node.isDirectory() ? directoryCount : fileCount);
                return true;
            });
            EXPECT_EQ(folder->size, size);
            EXPECT_EQ(folder->fileCount(), fileCount);
            EXPECT_EQ(folder->directoryCount(), directoryCount);
            const auto children = folder->children();
            EXPECT_TRUE(std::is_sorted(
                children.begin(), children.end(),
                [](const FileNode* a, const FileNode* b) { return NodeSorter::precedes(*a, *b); }))
                << "seed " << seed;
        }
    }
}

TEST(FileNode, AnErrorEndsACheckedWalk) {
    FileTreeBuilder tree("/r");
    for (const char* name : {"a", "b", "c"})
        tree.addFile(tree.root(), name, 1);
    const auto root = tree.finishWithoutAggregation();
    std::string seen;
    const auto visit = [&](const FileNode& node) {
        seen += node.name();
        return node.name() == "b" ? throw std::runtime_error("enough") : true;
    };
    EXPECT_THROW(root->forEachDescendantChecked(visit), std::runtime_error);
    EXPECT_THROW(std::as_const(*root).forEachDescendantChecked(visit), std::runtime_error);
    EXPECT_EQ(seen, "/rcb/rcb");
}

TEST(Aggregation, DeepChainsNeedNoStack) {
    constexpr int depth = 200'000;
    FileTreeBuilder tree("/r");
    FileNode* folder = &tree.root();
    for (int level = 0; level < depth; ++level)
        folder = &tree.addFolder(*folder, "d");
    tree.addFile(*folder, "f", 3);
    const auto root = tree.finish();
    EXPECT_EQ(root->size, 3);
    EXPECT_EQ(root->directoryCount(), depth);
    EXPECT_EQ(folder->depth(), static_cast<std::size_t>(depth));
    EXPECT_EQ(folder->path().size(), 2u + 2u * depth);
    EXPECT_EQ(root->node(folder->path()), folder);
    root->detachDescendants();
}

TEST(AggregationDeathTest, SumsThatDoNotFitAreFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    FileNodeAttributes reclaimable;
    reclaimable.privateSize = std::numeric_limits<std::int64_t>::max();
    reclaimable.reportsPrivateSize = true;
    const FileNodeAttributes each[] = {sizes(reclaimable.privateSize, 0), sizes(0, reclaimable.privateSize),
                                       reclaimable};
    for (const FileNodeAttributes& attributes : each) {
        for (const bool areInFolders : {false, true}) {
            FileTreeBuilder tree("/r");
            for (const char* name : {"a", "b"})
                tree.addFile(areInFolders ? tree.addFolder(tree.root(), name) : tree.root(), name,
                             attributes);
            EXPECT_DEATH(tree.finish(), "fatal error: a sum of sizes or counts does not fit") << areInFolders;
        }
    }
}

} // namespace
} // namespace tarnwell
