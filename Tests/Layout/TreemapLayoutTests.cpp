#include "TarnwellCore/Layout/TreemapLayout.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include "Tests/Support/PlainTreemap.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace tarnwell {
namespace {

using TreemapLayout::hitTest;
using TreemapLayout::layout;

constexpr std::int64_t largestSize = std::numeric_limits<std::int64_t>::max();

FileNodeAttributes sized(std::int64_t apparent, std::int64_t allocated, std::int64_t owned) {
    FileNodeAttributes attributes;
    attributes.size = apparent;
    attributes.allocatedSize = allocated;
    attributes.privateSize = owned;
    attributes.reportsPrivateSize = true;
    return attributes;
}

std::shared_ptr<FileNode> folderOfFiles(const std::vector<std::pair<std::string, std::int64_t>>& files) {
    FileTreeBuilder builder("/root");
    for (const auto& [name, size] : files)
        builder.addFile(builder.root(), name, size);
    return builder.finish();
}

std::shared_ptr<FileNode> randomTree(std::mt19937_64& random, std::size_t nodeCount) {
    FileTreeBuilder builder("/root");
    std::vector<FileNode*> folders{&builder.root()};
    const bool hasManyTies = random() % 2 == 0;
    for (std::size_t index = 0; index < nodeCount; ++index) {
        FileNode& parent = *folders[random() % folders.size()];
        std::string name = "entry " + std::to_string(random() % 1000);
        name.resize(1 + random() % name.size(), '\xFF');
        if (random() % 4 == 0) {
            folders.push_back(&builder.addFolder(parent, name));
        } else {
            const auto bytes = static_cast<std::int64_t>(random() % (hasManyTies ? 5 : 1'000'000));
            builder.addFile(parent, name,
                            sized(bytes, 4096 * ((bytes + 4095) / 4096), random() % 3 == 0 ? 0 : bytes));
        }
    }
    return random() % 2 == 0 ? builder.finish() : [&] {
        const std::shared_ptr<FileNode> root = builder.finish();
        // Not every tree stands in order.
        root->forEachDescendant([&](FileNode& node) {
            std::ranges::shuffle(node.mutableChildren(), random);
            return true;
        });
        return root;
    }();
}

struct RandomCase {
    std::shared_ptr<FileNode> root;
    TreemapConfiguration configuration;
    RemovedNodes removed;
    Rect area;
};

RandomCase randomCase(std::mt19937_64& random) {
    std::uniform_real_distribution<double> unit(0, 1);
    RandomCase result;
    result.root = randomTree(random, random() % 400);
    if (random() % 3 == 0)
        result.configuration = TreemapConfiguration::exact;
    result.configuration.maximumDepth = static_cast<std::int64_t>(random() % 6);
    result.configuration.sizeMode = static_cast<SizeMode>(random() % 3);
    result.configuration.aggregateRemainder = random() % 2 == 0;
    result.configuration.minimumSideForRecursion = unit(random) * 30;
    if (random() % 3 == 0)
        result.configuration.headerHeight = unit(random) * 20;
    if (random() % 3 == 0)
        result.configuration.padding = unit(random) * 6;
    if (random() % 3 == 0)
        result.configuration.minimumArea = unit(random) * 5000;
    if (random() % 2 == 0)
        result.root->forEachDescendant([&](const FileNode& node) {
            if (&node != result.root.get() && random() % 20 == 0)
                result.removed.insert(node);
            return true;
        });
    result.area = Rect(unit(random) * 100, unit(random) * 100, unit(random) * 1500, unit(random) * 1500);
    return result;
}

TEST(TreemapLayout, AgreesWithThePlainRulesOverRandomTrees) {
    std::mt19937_64 random(63);
    std::size_t itemCount = 0;
    for (int round = 0; round < 1'500; ++round) {
        const RandomCase input = randomCase(random);
        const auto items = layout(*input.root, input.area, input.configuration, input.removed);
        ASSERT_EQ(items, test::plainLayout(*input.root, input.area, input.configuration, input.removed))
            << "round " << round;
        itemCount += items.size();
    }
    EXPECT_GT(itemCount, 50'000u);
}

TEST(TreemapLayout, SmallTilesAreMergedIntoOne) {
    const auto root = folderOfFiles({{"large", 1'000'000}, {"small", 100}, {"smaller", 10}});
    const Rect area(0, 0, 100, 100);
    const auto items = layout(*root, area);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].node->name(), "large");
    EXPECT_TRUE(items[1].isAggregate());
    EXPECT_EQ(items[1].aggregatedCount, 2);
    EXPECT_EQ(items[1].value, 110);
    EXPECT_EQ(items[1].parent, root.get());

    // A tile of exactly the least weight stays, and the largest one always does.
    const auto quarters = folderOfFiles({{"c", 25}, {"b", 25}, {"a", 50}});
    TreemapConfiguration configuration;
    configuration.aggregateRemainder = false;
    const std::pair<double, std::size_t> counts[] = {
        {2'500, 3}, {2'501, 1},        {1e9, 1}, {std::numeric_limits<double>::infinity(), 1},
        {0, 3},     {std::nan(""), 3},
    };
    for (const auto& [least, count] : counts) {
        configuration.minimumArea = least;
        const auto kept = layout(*quarters, area, configuration);
        ASSERT_EQ(kept.size(), count) << least;
        EXPECT_EQ(kept[0].node->name(), "a") << least;
    }
}

TEST(TreemapLayout, EqualWeightsStandInByteOrderOfTheirNames) {
    // In creation order, with ties among allocated sizes only, and names whose order hangs on any byte.
    const std::vector<std::string> names = {
        "IMG_0001",         "IMG_00010",           std::string("IMG_\0", 5), "IMG_", "IMG_\xFF",
        "IMG_000100000009", "IMG_000100000010A",   "IMG_000100000010",       "a",    "\x80",
        "IMG_0001",         std::string("a\0", 2), std::string("a\0b", 3),   "B",    "",
    };
    FileTreeBuilder builder("/root");
    std::int64_t size = 0;
    for (const std::string& name : names)
        builder.addFile(builder.root(), name, sized(++size, 4096, 4096));
    const auto root = builder.finishWithoutAggregation();
    TreemapConfiguration configuration = TreemapConfiguration::exact;
    configuration.sizeMode = SizeMode::allocated;
    std::vector<std::string> order;
    for (const TreemapItem& item : layout(*root, {0, 0, 100, 100}, configuration))
        order.emplace_back(item.node->name());
    std::vector<std::string> expected = names;
    std::ranges::stable_sort(expected);
    EXPECT_EQ(order, expected);
}

TEST(TreemapLayout, DescendsOnlyIntoTilesWithRoomForTheHeader) {
    FileTreeBuilder builder("/root");
    FileNode& folder = builder.addFolder(builder.root(), "folder");
    builder.addFile(folder, "file", 10);
    const auto root = builder.finish();
    TreemapConfiguration configuration;
    configuration.padding = 0;
    configuration.headerHeight = 16;
    EXPECT_EQ(layout(*root, {0, 0, 30, 41}, configuration).size(), 1u);
    configuration.maximumDepth = 1;
    EXPECT_EQ(layout(*root, {0, 0, 30, 40}, configuration).size(), 1u);
    EXPECT_EQ(layout(*root, {0, 0, 24, 41}, configuration).size(), 1u);
    const auto items = layout(*root, {0, 0, 30, 41}, configuration);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[1].rect, Rect(1, 17, 28, 23));
    EXPECT_EQ(hitTest(items, {29, 30})->id, 0);
    EXPECT_EQ(hitTest(items, {28.9, 39.9})->id, 1);
    EXPECT_EQ(hitTest(items, {30, 41}), std::nullopt);
    EXPECT_EQ(hitTest({}, {0, 0}), std::nullopt);
    // A margin that eats the whole tile leaves the folder without children.
    for (const double inset : {15, 100}) {
        configuration.inset = inset;
        EXPECT_EQ(layout(*root, {0, 0, 30, 41}, configuration).size(), 1u) << inset;
    }
}

TEST(TreemapLayout, ListsOfNodesLackThoseThatWereRemovedWithTheirFolders) {
    FileTreeBuilder builder("/root");
    FileNode& kept = builder.addFolder(builder.root(), "kept");
    FileNode& gone = builder.addFolder(builder.root(), "gone");
    FileNode& below = builder.addFolder(gone, "below");
    const FileNode& inKept = builder.addFile(kept, "file", 10);
    const FileNode& inGone = builder.addFile(gone, "file", 20);
    const FileNode& deep = builder.addFile(below, "deep", 30);
    const auto root = builder.finish();
    // From all over the tree, whoever is named as their parent.
    const std::vector<const FileNode*> list = {&deep, &inGone, &inKept, &below};
    RemovedNodes removed;
    const auto items = [&] { return layout(list, nullptr, {0, 0, 100, 100}, {}, removed); };
    removed.insert(gone);
    ASSERT_EQ(items().size(), 1u);
    EXPECT_EQ(items()[0].node, &inKept);
    EXPECT_EQ(items()[0].parent, nullptr);
    removed.erase(gone);
    removed.insert(below);
    EXPECT_EQ(items().size(), 2u);
    removed.insert(*root);
    EXPECT_TRUE(items().empty());
    removed.clear();
    EXPECT_EQ(items().size(), 4u);
}

TEST(TreemapLayout, OddRectanglesAndConfigurations) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    FileTreeBuilder builder("/root");
    FileNode& folder = builder.addFolder(builder.root(), "folder");
    builder.addFile(folder, "x", 3);
    builder.addFile(builder.root(), "y", 2);
    const auto root = builder.finish();
    for (const Rect& area :
         {Rect(0, 0, 0, 9), Rect(0, 0, 9, 0), Rect(0, 0, nan, 9), Rect(0, 0, 9, nan), Rect::null()})
        EXPECT_TRUE(layout(*root, area).empty());
    for (const Rect& area : {Rect(0, 0, infinity, 9), Rect(nan, 0, 9, 9), Rect(0, 0, 1e300, 1e300)})
        for (const TreemapItem& item : layout(*root, area, TreemapConfiguration::exact))
            EXPECT_EQ(item.rect, Rect());
    EXPECT_EQ(layout(*root, {90, 70, -90, -70}), layout(*root, {0, 0, 90, 70}));
    EXPECT_TRUE(layout({}, nullptr, {0, 0, 9, 9}).empty());

    for (const double odd : {nan, infinity, -infinity, -5.0}) {
        TreemapConfiguration configuration{odd, odd, odd, odd, odd, 9, SizeMode::apparent, true};
        const auto items = layout(*root, {0, 0, 100, 100}, configuration);
        EXPECT_FALSE(items.empty());
    }
}

TEST(TreemapLayout, SizesUpToTheLimit) {
    const auto root = folderOfFiles({{"large", largestSize - 1}, {"one", 1}});
    const auto items = layout(*root, {0, 0, 100, 100});
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].value + items[1].value, largestSize);

    FileTreeBuilder builder("/root");
    builder.addFile(builder.root(), "a", largestSize);
    builder.addFile(builder.root(), "b", 1);
    builder.addFile(builder.root(), "c", -1);
    const auto tooLarge = builder.finishWithoutAggregation();
    EXPECT_DEATH(layout(*tooLarge, {0, 0, 100, 100}), "fatal error");
}

TEST(TreemapLayout, DepthIsNoLimit) {
    constexpr std::int64_t depth = 50'000;
    FileTreeBuilder builder("/root");
    FileNode* folder = &builder.root();
    for (std::int64_t level = 1; level < depth; ++level)
        folder = &builder.addFolder(*folder, "d");
    const FileNode& file = builder.addFile(*folder, "file", 1);
    const auto root = builder.finish();
    TreemapConfiguration configuration = TreemapConfiguration::exact;
    configuration.maximumDepth = std::numeric_limits<std::int64_t>::max();
    const auto items = layout(*root, {0, 0, 100, 100}, configuration);
    ASSERT_EQ(items.size(), static_cast<std::size_t>(depth));
    EXPECT_EQ(items.back().node, &file);
    EXPECT_EQ(items.back().depth, depth - 1);
    EXPECT_EQ(items.back().rect, Rect(0, 0, 100, 100));

    RemovedNodes removed;
    removed.insert(file);
    EXPECT_EQ(layout(*root, {0, 0, 100, 100}, configuration, removed).size(),
              static_cast<std::size_t>(depth - 1));
}

} // namespace
} // namespace tarnwell
