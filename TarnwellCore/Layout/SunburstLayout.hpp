#pragma once

// The file tree in rings: a ring for each depth, around each folder's part of a ring what it holds. An icicle
// that is bent round; what is said in IcicleLayout.hpp holds, with lengths measured along the middle of a
// ring.

#include "TarnwellCore/Layout/Geometry.hpp"
#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Layout/TreemapConfiguration.hpp"
#include "TarnwellCore/Layout/TreemapItem.hpp"

#include <optional>
#include <span>
#include <vector>

namespace tarnwell::SunburstLayout {

/// Where the rings lie; y grows downwards, as on screens. Radii in points. What is inside `innerRadius` stays
/// free, for the folder itself.
struct Disc {
    Point centre;
    double innerRadius = 0;
    double outerRadius = 0;
};

/// A part of a ring. Angles in radians, clockwise from the top.
struct Sector {
    double startAngle = 0;
    double endAngle = 0;
    double innerRadius = 0;
    double outerRadius = 0;

    bool operator==(const Sector&) const = default;
};

/// The children of the node in the innermost ring. An item's `rect` is its part of a ring laid flat: x is the
/// angle, y the radius; `sector` reads it.
std::vector<TreemapItem> layout(const FileNode& node, const Disc& in,
                                const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

/// The same for a list of children, in any order; `parent` may be null.
std::vector<TreemapItem> layout(std::span<const FileNode* const> children, const FileNode* parent,
                                const Disc& in, const TreemapConfiguration& configuration = {},
                                const RemovedNodes& removed = {});

Sector sector(const TreemapItem& item);

/// Where an angle and a radius are.
Point pointAt(const Disc& disc, double angle, double radius);

/// The item under the point.
std::optional<TreemapItem> hitTest(std::span<const TreemapItem> items, const Disc& disc, Point at);

} // namespace tarnwell::SunburstLayout
