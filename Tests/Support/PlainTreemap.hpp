#pragma once

// Treemaps by their rules as they are told, and what holds for every treemap.

#include "TarnwellCore/Layout/TreemapLayout.hpp"

#include <span>
#include <string>
#include <vector>

namespace tarnwell::test {

/// What `TreemapLayout::squarify` should give, to the bit: each row is judged as a whole again for every
/// value it might take. The area has no negative extent.
std::vector<Rect> plainSquarify(std::span<const double> values, const Rect& area);

/// What `TreemapLayout::layout` should give, to the bit, except that it recurses.
std::vector<TreemapItem> plainLayout(const FileNode& node, const Rect& area,
                                     const TreemapConfiguration& configuration, const RemovedNodes& removed);

/// What is wrong with a layout of `node` in a finite `area` with a finite configuration; empty when nothing
/// is: items are numbered and in pre-order, lie inside what they belong to, and apart from their siblings, by
/// up to `slack` points.
std::string layoutFault(std::span<const TreemapItem> items, const FileNode& node, const Rect& area,
                        double slack);

} // namespace tarnwell::test
