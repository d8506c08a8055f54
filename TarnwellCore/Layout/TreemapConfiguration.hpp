#pragma once

// How a treemap is drawn up: gaps, least sizes, depth and the size that counts. Lengths in points, areas in
// square points.

#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>

namespace tarnwell {

/// All eight fields may be given in this order. `TreemapConfiguration{}` is the default preset.
struct TreemapConfiguration {
    /// The gap drawn around every tile; half of it is taken off each side.
    double padding = 1.0;
    /// A strip on the minimum-y side of a folder's tile for its label; its children do not use it.
    double headerHeight = 0.0;
    /// The margin between a folder's tile and the area given to its children.
    double inset = 1.0;
    /// Tiles whose share of the area would be smaller than this are merged into one remainder tile.
    double minimumArea = 2.0;
    /// A folder's tile must be wider than this, and taller than this plus `headerHeight`, before its
    /// children are laid out.
    double minimumSideForRecursion = 24.0;
    /// The children of a tile at depth d are laid out only if d is less than this; 0 gives one level.
    std::int64_t maximumDepth = 0;
    /// Which size of a node is its weight.
    SizeMode sizeMode = SizeMode::apparent;
    /// Whether the merged small tiles get a remainder tile.
    bool aggregateRemainder = true;

    bool operator==(const TreemapConfiguration&) const = default;

    /// What a viewer starts with.
    static const TreemapConfiguration defaultPreset;
    /// No gaps and nothing merged: every child has its exact share.
    static const TreemapConfiguration exact;
};

inline constexpr TreemapConfiguration TreemapConfiguration::defaultPreset{};
inline constexpr TreemapConfiguration TreemapConfiguration::exact{
    .padding = 0.0,
    .headerHeight = 0.0,
    .inset = 0.0,
    .minimumArea = 0.0,
    .minimumSideForRecursion = 24.0,
    .maximumDepth = 0,
    .sizeMode = SizeMode::apparent,
    .aggregateRemainder = false,
};

} // namespace tarnwell
