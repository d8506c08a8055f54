#pragma once

// Turns levels of the file tree into rectangles whose areas are proportional to sizes, for a viewer to draw
// and to find the tile under the pointer. A pure computation: no state, safe from any thread as long as
// nobody changes the tree.

#include "TarnwellCore/Layout/Geometry.hpp"
#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Layout/TreemapConfiguration.hpp"
#include "TarnwellCore/Layout/TreemapItem.hpp"

#include <optional>
#include <span>
#include <vector>

namespace tarnwell::TreemapLayout {

/// Lays out the node's children in the rectangle; the node itself gets no tile.
///
/// The result is in pre-order: every tile is followed by the tiles of its descendants, siblings stand by
/// size, largest first, equal sizes by name, and an item's `id` is its index. Children without bytes in the
/// size mode and those at or below a removed node get no tile and count for nothing. A rectangle without a
/// positive width and height gives no tiles; one whose place or area is not finite gives tiles of no area
/// at 0, 0. A sum of sizes beyond 64 bits is a fatal error.
std::vector<TreemapItem> layout(const FileNode& node, const Rect& in,
                                const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

/// The same for a list of children, in any order; `parent` (may be null) is what their tiles name as such.
std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Rect& in, const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

/// The deepest tile of one layout that contains the point; minimum edges belong to a tile, maximum edges do
/// not.
std::optional<TreemapItem> hitTest(std::span<const TreemapItem> items, Point at);

/// Divides the rectangle among the values, in their order, into rectangles of proportional area that are as
/// nearly square as rows allow. Give the values largest first: it does not sort. All rectangles are zero when
/// the sum of the values is not positive, or the rectangle's place or area is not finite or has no extent.
std::vector<Rect> squarify(std::span<const double> values, const Rect& in);

} // namespace tarnwell::TreemapLayout
