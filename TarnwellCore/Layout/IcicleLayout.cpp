#include "TarnwellCore/Layout/IcicleLayout.hpp"

#include "TarnwellCore/Layout/SliceLayout.hpp"

#include <cmath>
#include <cstddef>

namespace tarnwell::IcicleLayout {

std::vector<TreemapItem> layout(const FileNode& node, const Rect& in,
                                const TreemapConfiguration& configuration, const RemovedNodes& removed) {
    return layout(node.children(), &node, in, configuration, removed);
}

std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Rect& in, const TreemapConfiguration& configuration,
                                const RemovedNodes& removed) {
    std::vector<TreemapItem> items;
    const Rect area = in.standardized();
    if (!std::isfinite(area.maxX()) || !std::isfinite(area.maxY()))
        return items;
    const std::size_t rows = levelCount(configuration, area.height());
    const std::vector<SliceLevel> levels(
        rows, {smallestSide(configuration), configuration.minimumSideForRecursion});
    const auto edge = [&](std::int64_t row) {
        return area.minY() + area.height() * (static_cast<double>(row) / static_cast<double>(rows));
    };
    RemovedNodesQuery query(removed);
    for (const Slice& slice :
         layoutSlices(children, parent, area.minX(), area.width(), levels, configuration, query)) {
        const double top = edge(slice.depth);
        const Rect rect(slice.start, top, slice.length, edge(slice.depth + 1) - top);
        items.push_back({.id = static_cast<std::int64_t>(items.size()),
                         .node = slice.node,
                         .parent = slice.parent,
                         .rect = rect.withoutGap(configuration.padding),
                         .depth = slice.depth,
                         .value = slice.value,
                         .aggregatedCount = slice.aggregatedCount});
    }
    return items;
}

} // namespace tarnwell::IcicleLayout
