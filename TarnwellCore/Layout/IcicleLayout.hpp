#pragma once

// The file tree in rows: a row for each depth, and below each folder what it holds, side by side. Items,
// removed nodes and what counts are those of the treemap, and so is the hit test: `TreemapLayout::hitTest`.
// A pure computation, safe from any thread as long as nobody changes the tree.
//
// Of the configuration, `headerHeight` and `inset` are not used. Nothing is narrower or lower than the side
// of the square of `minimumArea`, before the gap of `padding` is taken off; a folder wider than
// `minimumSideForRecursion` shows its children. Children fill their folder's width: what is too narrow is
// merged into one item at the end, and where that is too narrow, too, the others take its place.

#include "TarnwellCore/Layout/Geometry.hpp"
#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Layout/TreemapConfiguration.hpp"
#include "TarnwellCore/Layout/TreemapItem.hpp"

#include <span>
#include <vector>

namespace tarnwell::IcicleLayout {

/// In pre-order as `TreemapLayout::layout`, the node's children in the row at the minimum-y side; the node
/// itself gets no item. The area is divided into as many rows as `maximumDepth` allows and the smallest side
/// leaves room for, however deep the tree is, so that items keep their place when the area grows or another
/// folder is shown. Nothing for an area that is empty or not finite.
std::vector<TreemapItem> layout(const FileNode& node, const Rect& in,
                                const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

/// The same for a list of children, in any order; `parent` may be null.
std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Rect& in, const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

} // namespace tarnwell::IcicleLayout
