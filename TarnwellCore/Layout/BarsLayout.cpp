#include "TarnwellCore/Layout/BarsLayout.hpp"

#include "TarnwellCore/Layout/ChildWeights.hpp"
#include "TarnwellCore/Layout/SizeOrder.hpp"
#include "TarnwellCore/Layout/SliceLayout.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tarnwell::BarsLayout {

namespace {

/// The bars by rank; the last one has no node when it stands for the rest.
struct Ranking {
    std::vector<WeighedNode> bars;
    std::int64_t mergedCount = 0;
    std::int64_t longest = 0;
};

Ranking ranked(std::vector<WeighedNode> all, std::int64_t total, std::size_t count, std::size_t rows,
               bool showsRest) {
    Ranking result;
    std::size_t kept = std::min({count, all.size(), rows});
    if (kept == rows && kept < all.size() && showsRest)
        --kept; // a row for the rest
    std::ranges::partial_sort(all, all.begin() + static_cast<std::ptrdiff_t>(kept), precedesByWeight);
    const std::size_t mergedCount = all.size() - kept;
    all.resize(kept);
    std::int64_t rest = total;
    for (const WeighedNode& each : all)
        rest -= each.weight;
    result.bars = std::move(all);
    if (mergedCount > 0 && showsRest) {
        result.bars.push_back({nullptr, rest});
        result.mergedCount = static_cast<std::int64_t>(mergedCount);
    }
    for (const WeighedNode& each : result.bars)
        result.longest = std::max(result.longest, each.weight);
    return result;
}

} // namespace

std::vector<TreemapItem> layout(const FileNode& node, const Rect& in, std::size_t count,
                                const TreemapConfiguration& configuration, const RemovedNodes& removed) {
    return layout(node.children(), &node, in, count, configuration, removed);
}

std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Rect& in, std::size_t count, const TreemapConfiguration& configuration,
                                const RemovedNodes& removed) {
    std::vector<TreemapItem> items;
    const Rect area = in.standardized();
    const double side = smallestSide(configuration);
    if (!(area.width() > 0) || !(area.height() > 0) || area.width() < side || area.height() < side ||
        !std::isfinite(area.maxX()) || !std::isfinite(area.maxY()))
        return items;
    RemovedNodesQuery query(removed);
    std::vector<WeighedNode> all;
    const std::int64_t total = weighChildren(children, configuration.sizeMode, query, all);
    if (total < 1)
        return items;
    const double fitting = side > 0 ? std::floor(area.height() / side) : static_cast<double>(all.size() + 1);
    const auto rows = static_cast<std::size_t>(std::min(fitting, static_cast<double>(all.size() + 1)));
    const Ranking ranking = ranked(std::move(all), total, count, rows, configuration.aggregateRemainder);

    // Its levels lie on one another.
    const auto depths =
        static_cast<std::size_t>(std::clamp<std::int64_t>(configuration.maximumDepth, 0, 1'000));
    const std::vector<SliceLevel> levels(depths, {side, configuration.minimumSideForRecursion});
    TreemapConfiguration inner = configuration;
    --inner.maximumDepth;
    const auto add = [&](const Slice& slice, double top, double height, std::int64_t depth) {
        items.push_back(
            {.id = static_cast<std::int64_t>(items.size()),
             .node = slice.node,
             .parent = slice.parent,
             .rect = Rect(slice.start, top, slice.length, height).withoutGap(configuration.padding),
             .depth = depth,
             .value = slice.value,
             .aggregatedCount = slice.aggregatedCount});
    };
    const auto rowCount = static_cast<double>(ranking.bars.size());
    for (std::size_t row = 0; row < ranking.bars.size(); ++row) {
        const WeighedNode& bar = ranking.bars[row];
        const double top = area.minY() + area.height() * (static_cast<double>(row) / rowCount);
        const double end = area.minY() + area.height() * (static_cast<double>(row + 1) / rowCount);
        const double share = static_cast<double>(bar.weight) / static_cast<double>(ranking.longest);
        const double length = std::max(area.width() * share, side);
        add({bar.node, parent, 0, bar.weight, bar.node == nullptr ? ranking.mergedCount : 0, area.minX(),
             length},
            top, end - top, 0);
        if (bar.node == nullptr || !bar.node->isDirectory() ||
            !(length > configuration.minimumSideForRecursion))
            continue;
        for (const Slice& slice :
             layoutSlices(bar.node->children(), bar.node, area.minX(), length, levels, inner, query))
            add(slice, top, end - top, slice.depth + 1);
    }
    return items;
}

} // namespace tarnwell::BarsLayout
