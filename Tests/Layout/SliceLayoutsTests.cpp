// Icicle, sunburst and bars: what holds for each of them, over random trees.

#include "TarnwellCore/Layout/BarsLayout.hpp"
#include "TarnwellCore/Layout/IcicleLayout.hpp"
#include "TarnwellCore/Layout/SunburstLayout.hpp"
#include "TarnwellCore/Layout/TreemapLayout.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <random>
#include <string>

namespace tarnwell {
namespace {

using Items = std::vector<TreemapItem>;

std::shared_ptr<FileNode> randomTree(std::mt19937_64& random, std::size_t nodeCount) {
    FileTreeBuilder builder("/root");
    std::vector<FileNode*> folders{&builder.root()};
    std::lognormal_distribution<double> bytes(9, 2.5);
    for (std::size_t index = 0; index < nodeCount; ++index) {
        FileNode& parent = *folders[random() % folders.size()];
        if (random() % 4 == 0)
            folders.push_back(&builder.addFolder(parent, "folder" + std::to_string(index)));
        else
            builder.addFile(parent, "file" + std::to_string(index),
                            random() % 9 == 0 ? 0 : static_cast<std::int64_t>(bytes(random)));
    }
    return builder.finish();
}

struct Case {
    std::shared_ptr<FileNode> root;
    TreemapConfiguration configuration;
    RemovedNodes removed;
    Rect area;
};

Case randomCase(std::mt19937_64& random) {
    std::uniform_real_distribution<double> unit(0, 1);
    Case result;
    result.root = randomTree(random, random() % 500);
    result.configuration = {.padding = 0,
                            .minimumArea = unit(random) * 30,
                            .minimumSideForRecursion = unit(random) * 30,
                            .maximumDepth = static_cast<std::int64_t>(random() % 7),
                            .sizeMode = static_cast<SizeMode>(random() % 3),
                            .aggregateRemainder = random() % 3 != 0};
    if (random() % 2 == 0)
        result.root->forEachDescendant([&](const FileNode& node) {
            if (&node != result.root.get() && random() % 15 == 0)
                result.removed.insert(node);
            return true;
        });
    result.area = {unit(random) * 50, unit(random) * 50, 20 + unit(random) * 1'500, 20 + unit(random) * 900};
    return result;
}

/// The items of one level of a folder each.
std::map<const FileNode*, Items> byParent(const Items& items) {
    std::map<const FileNode*, Items> result;
    for (const TreemapItem& item : items)
        result[item.parent].push_back(item);
    return result;
}

/// `scale` is points in a unit of x, at this depth.
template <class Scale>
void expectSound(const Items& items, const Case& input, double start, double length, Scale scale) {
    constexpr double slack = 1e-7;
    const double side = std::sqrt(input.configuration.minimumArea);
    std::map<const FileNode*, TreemapItem> shown;
    for (const TreemapItem& item : items) {
        ASSERT_EQ(item.id, static_cast<std::int64_t>(&item - items.data()));
        ASSERT_GE(item.rect.width() * scale(item), side - slack);
        ASSERT_GE(item.rect.height(), side - slack);
        if (item.node == nullptr)
            continue;
        ASSERT_FALSE(input.removed.containsNodeOrAncestor(*item.node));
        ASSERT_EQ(item.value, item.node->sizeFor(input.configuration.sizeMode));
        ASSERT_TRUE(shown.emplace(item.node, item).second);
    }
    for (const auto& [parent, level] : byParent(items)) {
        const bool isFirst = parent == input.root.get();
        if (!isFirst) {
            ASSERT_TRUE(shown.contains(parent));
        }
        const Rect whole = isFirst ? Rect(start, 0, length, 0) : shown[parent].rect;
        double position = whole.minX();
        std::int64_t total = 0;
        for (const TreemapItem& item : level) {
            ASSERT_EQ(item.depth, isFirst ? 0 : shown[parent].depth + 1);
            ASSERT_NEAR(item.rect.minX(), position, slack);
            position = item.rect.maxX();
            total += item.value;
        }
        ASSERT_NEAR(position, whole.maxX(), slack); // filled
        for (std::size_t index = 0; index < level.size(); ++index) {
            const TreemapItem& item = level[index];
            ASSERT_NEAR(item.rect.width() / whole.width(),
                        static_cast<double>(item.value) / static_cast<double>(total), slack);
            ASSERT_TRUE(index + 1 == level.size() ||
                        (item.node != nullptr &&
                         (level[index + 1].isAggregate() || level[index + 1].value <= item.value)));
        }
    }
}

TEST(SliceLayouts, SiblingsFillTheirParentAndNothingIsTooSmall) {
    std::mt19937_64 random(71);
    std::size_t count = 0;
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        const Case input = randomCase(random);
        const Items icicle =
            IcicleLayout::layout(*input.root, input.area, input.configuration, input.removed);
        ASSERT_NO_FATAL_FAILURE(expectSound(icicle, input, input.area.minX(), input.area.width(),
                                            [](const TreemapItem&) { return 1.0; }));
        const SunburstLayout::Disc disc{{7, 9}, input.area.minX(), input.area.minX() + input.area.height()};
        const Items sunburst = SunburstLayout::layout(*input.root, disc, input.configuration, input.removed);
        ASSERT_NO_FATAL_FAILURE(
            expectSound(sunburst, input, 0, 2 * std::numbers::pi,
                        [](const TreemapItem& item) { return (item.rect.minY() + item.rect.maxY()) / 2; }));
        // Twice as large with limits that are twice as large is the same picture.
        TreemapConfiguration doubled = input.configuration;
        doubled.minimumArea *= 4;
        doubled.minimumSideForRecursion *= 2;
        const Rect large{input.area.minX() * 2, input.area.minY() * 2, input.area.width() * 2,
                         input.area.height() * 2};
        const Items again = IcicleLayout::layout(*input.root, large, doubled, input.removed);
        ASSERT_EQ(again.size(), icicle.size());
        for (std::size_t index = 0; index < again.size(); ++index) {
            ASSERT_EQ(again[index].node, icicle[index].node);
            ASSERT_NEAR(again[index].rect.minX(), icicle[index].rect.minX() * 2, 1e-7);
            ASSERT_NEAR(again[index].rect.minY(), icicle[index].rect.minY() * 2, 1e-7);
        }
        // A wider area shows what it showed, and more.
        const Rect wider{input.area.minX(), input.area.minY(), input.area.width() * 1.3, input.area.height()};
        std::map<const FileNode*, TreemapItem> shown;
        for (const TreemapItem& item :
             IcicleLayout::layout(*input.root, wider, input.configuration, input.removed))
            shown.emplace(item.node, item);
        for (const TreemapItem& item : icicle)
            ASSERT_TRUE(item.depth > 0 || item.isAggregate() || shown.contains(item.node));
        // What is under a point of an item is this item, as nothing lies on it.
        for (const TreemapItem& item : sunburst) {
            const double angle = item.rect.minX() + item.rect.width() * 0.3;
            const double radius = item.rect.minY() + item.rect.height() * 0.6;
            ASSERT_EQ(SunburstLayout::hitTest(sunburst, disc, SunburstLayout::pointAt(disc, angle, radius)),
                      item);
        }
        count += icicle.size() + sunburst.size();
    }
    EXPECT_GT(count, 10'000u);
}

TEST(SliceLayouts, BarsRankTheLargestAndTheRest) {
    std::mt19937_64 random(72);
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        Case input = randomCase(random);
        const std::size_t limit = random() % 12;
        const Items items =
            BarsLayout::layout(*input.root, input.area, limit, input.configuration, input.removed);
        Items bars;
        std::int64_t longest = 0;
        const double side = std::sqrt(input.configuration.minimumArea);
        for (const TreemapItem& item : items) {
            if (item.depth == 0) {
                bars.push_back(item);
                longest = std::max(longest, item.value);
            } else { // lies within its bar
                ASSERT_EQ(item.rect.minY(), bars.back().rect.minY());
                ASSERT_LE(item.rect.maxX(), bars.back().rect.maxX() + 1e-7);
            }
            ASSERT_GE(item.rect.width(), side - 1e-7);
            ASSERT_GE(item.rect.height(), side - 1e-7);
        }
        std::int64_t total = 0;
        std::size_t candidates = 0;
        for (const FileNode* child : input.root->children())
            if (!input.removed.contains(*child) && child->sizeFor(input.configuration.sizeMode) > 0) {
                total += child->sizeFor(input.configuration.sizeMode);
                ++candidates;
            }
        double top = input.area.minY();
        std::int64_t seen = 0;
        for (std::size_t index = 0; index < bars.size(); ++index) {
            const TreemapItem& bar = bars[index];
            ASSERT_NEAR(bar.rect.minY(), top, 1e-7);
            top = bar.rect.maxY();
            seen += bar.value;
            ASSERT_NEAR(bar.rect.width(),
                        std::max(side, input.area.width() * static_cast<double>(bar.value) /
                                           static_cast<double>(longest)),
                        1e-7);
            ASSERT_TRUE(index == 0 || bar.isAggregate() || bars[index - 1].value >= bar.value);
        }
        ASSERT_EQ(bars.empty(), candidates == 0 || (limit == 0 && !input.configuration.aggregateRemainder));
        if (!bars.empty()) {
            ASSERT_NEAR(top, input.area.maxY(), 1e-7);
        }
        if (input.configuration.aggregateRemainder) {
            ASSERT_EQ(seen, total);
        }
        if (!bars.empty() && bars.back().isAggregate()) {
            ASSERT_EQ(bars.size() - 1 + static_cast<std::size_t>(bars.back().aggregatedCount), candidates);
        }
    }
}

TEST(SliceLayouts, SmallOnesAreMergedAndWhatIsMergedNeverTooSmall) {
    const auto widths = [](const std::vector<std::int64_t>& sizes, bool merges) {
        FileTreeBuilder builder("/root");
        for (std::size_t index = 0; index < sizes.size(); ++index)
            builder.addFile(builder.root(), std::to_string(index), sizes[index]);
        const auto root = builder.finish();
        std::vector<std::pair<std::int64_t, double>> result;
        for (const TreemapItem& item : IcicleLayout::layout(
                 *root, {0, 0, 100, 10}, {.padding = 0, .minimumArea = 4, .aggregateRemainder = merges}))
            result.emplace_back(item.aggregatedCount, item.rect.width());
        return result;
    };
    using Widths = std::vector<std::pair<std::int64_t, double>>;
    EXPECT_EQ(widths({95, 3, 1, 1}, true), (Widths{{0, 95}, {0, 3}, {2, 2}}));
    EXPECT_EQ(widths({50, 49, 1}, true), (Widths{{0, 100 * (50.0 / 99)}, {0, 100 - 100 * (50.0 / 99)}}));
    EXPECT_EQ(widths(std::vector<std::int64_t>(100, 1), true), (Widths{{100, 100}}));
    EXPECT_EQ(widths(std::vector<std::int64_t>(100, 1), false), Widths{});
    EXPECT_EQ(widths({2, 98}, false), (Widths{{0, 98}, {0, 2}}));
}

TEST(SliceLayouts, AreasThatAreNone) {
    std::mt19937_64 random(73);
    const auto root = randomTree(random, 100);
    const double infinity = std::numeric_limits<double>::infinity();
    for (const Rect& area : {Rect(), Rect(0, 0, 10, 0), Rect(0, 0, 0, 10), Rect(0, 0, infinity, 10),
                             Rect(std::nan(""), 0, 10, 10), Rect(0, 0, 1, 1), Rect::null()}) {
        EXPECT_TRUE(IcicleLayout::layout(*root, area).empty());
        EXPECT_TRUE(BarsLayout::layout(*root, area, 5).empty());
        const SunburstLayout::Disc disc{area.origin, area.width(), area.height()};
        EXPECT_TRUE(SunburstLayout::layout(*root, disc).empty() || area.height() == 10);
    }
    // Turned round, it is the same area.
    EXPECT_EQ(IcicleLayout::layout(*root, {100, 50, -100, -50}),
              IcicleLayout::layout(*root, {0, 0, 100, 50}));
    EXPECT_FALSE(SunburstLayout::hitTest({}, {{0, 0}, 0, 10}, {1, 1}));
}

TEST(SliceLayouts, DeepTreesNeedNoStack) {
    FileTreeBuilder builder("/root");
    FileNode* folder = &builder.root();
    for (int level = 0; level < 30'000; ++level)
        folder = &builder.addFolder(*folder, "d");
    builder.addFile(*folder, "end", 1);
    const auto root = builder.finish();
    const TreemapConfiguration all{
        .padding = 0, .minimumArea = 0, .minimumSideForRecursion = 0, .maximumDepth = 1'000'000};
    EXPECT_EQ(IcicleLayout::layout(*root, {0, 0, 10, 10}, all).size(), 30'001u);
    EXPECT_EQ(SunburstLayout::layout(*root, {{0, 0}, 1, 10}, all).size(), 30'001u);
    EXPECT_EQ(BarsLayout::layout(*root, {0, 0, 10, 10}, 3, all).size(), 1'001u);
}

} // namespace
} // namespace tarnwell
