#pragma once

// The largest of a folder, ranked: a bar each from the minimum-x side, as long as its size beside the
// longest, and the rest as one bar below. Items, removed nodes, what counts and the hit test are those of the
// treemap. A pure computation, safe from any thread as long as nobody changes the tree.
//
// Of the configuration, `headerHeight` and `inset` are not used. With a `maximumDepth` above 0 a bar that is
// longer than `minimumSideForRecursion` is divided along its length among its children, and so on: items
// within items, the deepest last. Nothing is lower than the side of the square of `minimumArea`, before the
// gap of `padding` is taken off: as many bars as fit are shown. A bar that would be shorter than that is that
// long.

#include "TarnwellCore/Layout/Geometry.hpp"
#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Layout/TreemapConfiguration.hpp"
#include "TarnwellCore/Layout/TreemapItem.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace tarnwell::BarsLayout {

/// In pre-order, at most `count` bars and one for the rest, which is left out where `aggregateRemainder` is
/// off. The bars are of one height and fill that of the area.
std::vector<TreemapItem> layout(const FileNode& node, const Rect& in, std::size_t count,
                                const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

/// The same for a list, such as the largest files of a tree; `parent` may be null.
std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Rect& in, std::size_t count,
                                const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

} // namespace tarnwell::BarsLayout
