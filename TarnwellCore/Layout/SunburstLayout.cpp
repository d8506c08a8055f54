#include "TarnwellCore/Layout/SunburstLayout.hpp"

#include "TarnwellCore/Layout/SliceLayout.hpp"
#include "TarnwellCore/Layout/TreemapLayout.hpp"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace tarnwell::SunburstLayout {

namespace {

constexpr double fullCircle = 2 * std::numbers::pi;

} // namespace

std::vector<TreemapItem> layout(const FileNode& node, const Disc& in,
                                const TreemapConfiguration& configuration, const RemovedNodes& removed) {
    return layout(node.children(), &node, in, configuration, removed);
}

std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Disc& in, const TreemapConfiguration& configuration,
                                const RemovedNodes& removed) {
    std::vector<TreemapItem> items;
    if (!(in.innerRadius >= 0))
        return items;
    const double extent = in.outerRadius - in.innerRadius;
    const std::size_t rings = levelCount(configuration, extent);
    const auto edge = [&](std::int64_t ring) {
        return in.innerRadius + extent * (static_cast<double>(ring) / static_cast<double>(rings));
    };
    std::vector<SliceLevel> levels;
    for (std::size_t ring = 0; ring < rings; ++ring) {
        const double middle = edge(static_cast<std::int64_t>(ring)) + extent / static_cast<double>(rings) / 2;
        levels.push_back(
            {smallestSide(configuration) / middle, configuration.minimumSideForRecursion / middle});
    }
    RemovedNodesQuery query(removed);
    for (const Slice& slice : layoutSlices(children, parent, 0, fullCircle, levels, configuration, query)) {
        const double inner = edge(slice.depth);
        const double outer = edge(slice.depth + 1);
        // The gap is as wide along the ring as across it; a ring that is one item has no gap in it.
        const double middle = (inner + outer) / 2;
        const bool isRing = slice.length >= fullCircle;
        const Rect across = Rect(0, inner, 0, outer - inner).withoutGap(configuration.padding);
        const Rect along =
            Rect(slice.start, 0, slice.length, 0).withoutGap(isRing ? 0 : configuration.padding / middle);
        items.push_back({.id = static_cast<std::int64_t>(items.size()),
                         .node = slice.node,
                         .parent = slice.parent,
                         .rect = Rect(along.minX(), across.minY(), along.width(), across.height()),
                         .depth = slice.depth,
                         .value = slice.value,
                         .aggregatedCount = slice.aggregatedCount});
    }
    return items;
}

Sector sector(const TreemapItem& item) {
    return {item.rect.minX(), item.rect.maxX(), item.rect.minY(), item.rect.maxY()};
}

Point pointAt(const Disc& disc, double angle, double radius) {
    return {disc.centre.x + radius * std::sin(angle), disc.centre.y - radius * std::cos(angle)};
}

std::optional<TreemapItem> hitTest(std::span<const TreemapItem> items, const Disc& disc, Point at) {
    const double right = at.x - disc.centre.x;
    const double up = disc.centre.y - at.y;
    double angle = std::atan2(right, up);
    if (angle < 0)
        angle += fullCircle;
    if (angle >= fullCircle)
        angle = 0; // the least negative angles are lost in the sum
    return TreemapLayout::hitTest(items, {angle, std::hypot(right, up)});
}

} // namespace tarnwell::SunburstLayout
