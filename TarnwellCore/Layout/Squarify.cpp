// Tiles are placed row after row along the shorter side of what is still free. A row takes further values as
// long as the worst ratio of sides among its tiles does not get worse.
//
// Every product, quotient and sum here is one rounding, in the order written: two viewers of one tree show
// the same tiles, and rows end exactly on the edge of the free area because the last tile of a row takes
// what is left. The build must not fuse multiplications with additions.

#include "TarnwellCore/Layout/Squarify.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace tarnwell {
namespace {

constexpr double largestFinite = std::numeric_limits<double>::max();

struct Row {
    /// One past the index of the row's last value.
    std::size_t end;
    /// The sum of its tiles' areas.
    double area;
};

/// The row that starts with value `begin` along a side of this length. `scale` is area per unit of value.
Row nextRow(std::span<const double> values, std::size_t begin, double scale, double side) {
    const double squaredSide = side * side;
    Row row{begin, 0};
    double smallest = largestFinite;
    double largest = 0;
    double previousWorst = largestFinite;
    for (; row.end < values.size(); ++row.end) {
        const double area = scale * values[row.end];
        const double rowArea = row.area + area;
        smallest = std::min(smallest, area);
        largest = std::max(largest, area);
        double worst = largestFinite;
        if (rowArea > 0 && smallest > 0) {
            const double squaredArea = rowArea * rowArea;
            worst = std::max(squaredSide * largest / squaredArea, squaredArea / (squaredSide * smallest));
        }
        if (row.end > begin && previousWorst < worst)
            break;
        row.area = rowArea;
        previousWorst = worst;
    }
    return row;
}

bool isFinite(const Rect& area) {
    return std::isfinite(area.minX()) && std::isfinite(area.minY()) &&
           std::isfinite(area.width() * area.height());
}

} // namespace

void squarify(std::span<const double> values, const Rect& area, std::span<Rect> tiles) {
    std::ranges::fill(tiles, Rect());
    double sum = 0;
    for (const double value : values)
        sum += value;
    if (!(area.width() > 0) || !(area.height() > 0) || !(sum > 0) || !isFinite(area))
        return;

    const double scale = area.width() * area.height() / sum;
    Rect free = area.standardized();
    std::size_t begin = 0;
    while (begin < values.size()) {
        const double side = std::min(free.width(), free.height());
        if (side <= 0)
            break;
        const Row row = nextRow(values, begin, scale, side);
        const double thickness = row.area / side;
        const bool isHorizontal = free.width() <= free.height();
        const double rowThickness = std::min(isHorizontal ? free.height() : free.width(), thickness);
        const double rowEnd = isHorizontal ? free.maxX() : free.maxY();
        double position = isHorizontal ? free.minX() : free.minY();
        for (std::size_t index = begin; index < row.end; ++index) {
            double length = row.area > 0 ? scale * values[index] / thickness : 0;
            if (index + 1 == row.end)
                length = std::max(rowEnd - position, 0.0);
            tiles[index] = isHorizontal ? Rect(position, free.minY(), length, rowThickness)
                                        : Rect(free.minX(), position, rowThickness, length);
            position += length;
        }
        if (isHorizontal)
            free = {free.minX(), free.minY() + rowThickness, free.width(),
                    std::max(free.height() - rowThickness, 0.0)};
        else
            free = {free.minX() + rowThickness, free.minY(), std::max(free.width() - rowThickness, 0.0),
                    free.height()};
        begin = row.end;
    }
    std::ranges::fill(tiles.subspan(begin), Rect(free.minX(), free.minY(), 0, 0));
}

} // namespace tarnwell
