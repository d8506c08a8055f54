#pragma once

// The subdivision behind `TreemapLayout::squarify`, into memory of the caller's.

#include "TarnwellCore/Layout/Geometry.hpp"

#include <span>

namespace tarnwell {

/// Fills `tiles`, one for each value. See `TreemapLayout::squarify`.
void squarify(std::span<const double> values, const Rect& area, std::span<Rect> tiles);

} // namespace tarnwell
