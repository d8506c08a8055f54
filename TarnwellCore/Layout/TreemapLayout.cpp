#include "TarnwellCore/Layout/TreemapLayout.hpp"

#include "TarnwellCore/Layout/ChildWeights.hpp"
#include "TarnwellCore/Layout/SizeOrder.hpp"
#include "TarnwellCore/Layout/Squarify.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ranges>

namespace tarnwell::TreemapLayout {
namespace {

/// One layout under way. Levels are kept on a stack of its own, since trees may be deeper than the thread's
/// stack; the tiles of all open levels share two arrays, the innermost level's at their ends.
class LayoutRun {
public:
    LayoutRun(const TreemapConfiguration& configuration, const RemovedNodes& removed)
        : configuration_(configuration), removed_(removed) {}

    std::vector<TreemapItem> run(std::span<const FileNode* const> children, const FileNode* parent,
                                 const Rect& area);

private:
    struct Level {
        const FileNode* parent;
        std::int64_t depth;
        /// Its tiles are [begin, end) of `tiles_` and `rects_`, those before `next` are emitted.
        std::size_t begin;
        std::size_t next;
        std::size_t end;
        std::int64_t mergedCount;
    };

    void openLevel(std::span<const FileNode* const> children, const FileNode* parent, const Rect& area,
                   std::int64_t depth);
    std::int64_t mergeSmallTiles(std::size_t begin, std::int64_t total, const Rect& area);
    void emitNextTile();
    bool descendsInto(const FileNode& node, std::int64_t depth, const Rect& tile) const;
    Rect innerArea(const Rect& tile) const;

    const TreemapConfiguration& configuration_;
    RemovedNodesQuery removed_;
    std::vector<TreemapItem> items_;
    std::vector<Level> levels_;
    /// A remainder tile has no node.
    std::vector<WeighedNode> tiles_;
    std::vector<Rect> rects_;
    std::vector<double> values_;
};

std::vector<TreemapItem> LayoutRun::run(std::span<const FileNode* const> children, const FileNode* parent,
                                        const Rect& area) {
    openLevel(children, parent, area, 0);
    while (!levels_.empty()) {
        const Level& level = levels_.back();
        if (level.next < level.end) {
            emitNextTile();
            continue;
        }
        tiles_.resize(level.begin);
        levels_.pop_back();
    }
    return std::move(items_);
}

/// Places the children's tiles and makes them the innermost level; does nothing when there are none.
void LayoutRun::openLevel(std::span<const FileNode* const> children, const FileNode* parent, const Rect& area,
                          std::int64_t depth) {
    if (!(area.width() > 0) || !(area.height() > 0))
        return;
    const std::size_t begin = tiles_.size();
    const std::int64_t total = weighChildren(children, configuration_.sizeMode, removed_, tiles_);
    if (total < 1)
        return;
    const std::size_t weighedCount = tiles_.size() - begin;
    const std::int64_t mergedWeight = mergeSmallTiles(begin, total, area);
    const std::size_t mergedCount = weighedCount - (tiles_.size() - begin);
    sortByWeight(std::span(tiles_).subspan(begin));
    if (mergedCount > 0 && configuration_.aggregateRemainder)
        tiles_.push_back({nullptr, mergedWeight});

    values_.clear();
    for (std::size_t index = begin; index < tiles_.size(); ++index)
        values_.push_back(static_cast<double>(tiles_[index].weight));
    rects_.resize(tiles_.size());
    tarnwell::squarify(values_, area, std::span(rects_).subspan(begin));
    levels_.push_back({parent, depth, begin, begin, tiles_.size(), static_cast<std::int64_t>(mergedCount)});
}

/// Drops the tiles from `begin` on whose share of the area is too small, and returns their weight. The
/// largest tile always stays. Small tiles are found by their weight alone, so only the others need sorting.
std::int64_t LayoutRun::mergeSmallTiles(std::size_t begin, std::int64_t total, const Rect& area) {
    const double minimumArea = configuration_.minimumArea;
    const double fraction = minimumArea > 0 ? minimumArea / (area.width() * area.height()) : 0;
    if (fraction <= 0)
        return 0;
    const double minimumWeight = fraction * static_cast<double>(total);
    const auto tiles = std::span(tiles_).subspan(begin);
    const auto isSmall = [&](const WeighedNode& tile) {
        return !(minimumWeight <= static_cast<double>(tile.weight));
    };
    std::size_t keptCount = 1;
    if (std::ranges::all_of(tiles, isSmall))
        tiles.front() = *std::ranges::min_element(tiles, precedesByWeight);
    else
        keptCount = tiles.size() - std::ranges::remove_if(tiles, isSmall).size();
    tiles_.resize(begin + keptCount);
    std::int64_t keptWeight = 0;
    for (const WeighedNode& tile : tiles.first(keptCount))
        keptWeight += tile.weight;
    return total - keptWeight;
}

void LayoutRun::emitNextTile() {
    Level& level = levels_.back();
    const WeighedNode tile = tiles_[level.next];
    const Rect rect = rects_[level.next].withoutGap(configuration_.padding);
    ++level.next;
    items_.push_back({.id = static_cast<std::int64_t>(items_.size()),
                      .node = tile.node,
                      .parent = level.parent,
                      .rect = rect,
                      .depth = level.depth,
                      .value = tile.weight,
                      .aggregatedCount = tile.node == nullptr ? level.mergedCount : 0});
    if (tile.node != nullptr && descendsInto(*tile.node, level.depth, rect))
        openLevel(tile.node->children(), tile.node, innerArea(rect), level.depth + 1);
}

bool LayoutRun::descendsInto(const FileNode& node, std::int64_t depth, const Rect& tile) const {
    const double side = configuration_.minimumSideForRecursion;
    return depth < configuration_.maximumDepth && node.isDirectory() && !node.children().empty() &&
           side < tile.width() && side + configuration_.headerHeight < tile.height();
}

/// Where the tiles of a folder's children go.
Rect LayoutRun::innerArea(const Rect& tile) const {
    const Rect inner = tile.insetBy(configuration_.inset, configuration_.inset);
    const double header = configuration_.headerHeight;
    if (!(header > 0))
        return inner;
    return {inner.minX(), inner.minY() + header, inner.width(), std::max(inner.height() - header, 0.0)};
}

} // namespace

std::vector<TreemapItem> layout(const FileNode& node, const Rect& in,
                                const TreemapConfiguration& configuration, const RemovedNodes& removed) {
    return layout(node.children(), &node, in, configuration, removed);
}

std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Rect& in, const TreemapConfiguration& configuration,
                                const RemovedNodes& removed) {
    return LayoutRun(configuration, removed).run(children, parent, in);
}

std::optional<TreemapItem> hitTest(std::span<const TreemapItem> items, Point at) {
    // Descendants follow their ancestors, so the last tile that contains the point is the deepest.
    for (const TreemapItem& item : std::views::reverse(items))
        if (item.rect.contains(at))
            return item;
    return std::nullopt;
}

std::vector<Rect> squarify(std::span<const double> values, const Rect& in) {
    std::vector<Rect> tiles(values.size());
    tarnwell::squarify(values, in, tiles);
    return tiles;
}

} // namespace tarnwell::TreemapLayout
