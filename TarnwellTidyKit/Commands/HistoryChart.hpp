#pragma once

// A small chart of how a size went over time, of block characters.

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace tarnwell {

struct ChartPoint {
    Date date;
    std::int64_t bytes = 0;
};

/// Lines with the largest and the smallest size at their left and the first and the last day below. Each
/// column shows what was known last at its time. `points` are in the order of time. Empty where the style has
/// no bars, where it is too narrow, and unless two points lie apart.
std::string historyChart(std::span<const ChartPoint> points, const TidyStyle& style);

} // namespace tarnwell
