#include "TarnwellTidyKit/Commands/HistoryChart.hpp"

#include "TarnwellCore/Text/DisplayWidth.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <vector>

namespace tarnwell {

std::string historyChart(std::span<const ChartPoint> points, const TidyStyle& style) {
    static constexpr std::array<std::string_view, 9> eighths = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr std::size_t rows = 5;
    constexpr std::size_t indent = 2;
    constexpr std::size_t widest = 60;
    constexpr std::size_t narrowest = 24; // both days below have room
    if (!style.hasBars || points.size() < 2)
        return {};
    const Date first = points.front().date;
    const double span = (points.back().date - first).count();
    if (!(span > 0))
        return {};
    const auto [least, most] = std::ranges::minmax(points, {}, &ChartPoint::bytes);
    const std::string top = sizeText(most.bytes);
    const std::string bottom = sizeText(least.bytes);
    const std::size_t margin = indent + std::max(displayWidth(top), displayWidth(bottom)) + 1;
    if (style.columns > 0 && style.columns < margin + narrowest)
        return {};
    const std::size_t width = style.columns > 0 ? std::min(widest, style.columns - margin) : widest;

    // Of each column, eighths of a row; the smallest size is seen as well.
    std::vector<std::size_t> heights;
    const double range = static_cast<double>(most.bytes) - static_cast<double>(least.bytes);
    std::size_t point = 0;
    for (std::size_t column = 0; column < width; ++column) {
        const double time = span * static_cast<double>(column) / static_cast<double>(width - 1);
        while (point + 1 < points.size() && (points[point + 1].date - first).count() <= time)
            ++point;
        const double part =
            range > 0 ? (static_cast<double>(points[point].bytes) - static_cast<double>(least.bytes)) / range
                      : 0.5;
        heights.push_back(1 + static_cast<std::size_t>(std::lround(part * (rows * 8 - 1))));
    }
    std::string text;
    for (std::size_t row = rows; row-- > 0;) {
        const std::string label = row == rows - 1 ? top : row == 0 ? bottom : std::string();
        std::string line;
        for (const std::size_t height : heights)
            line += eighths[std::min<std::size_t>(height > row * 8 ? height - row * 8 : 0, 8)];
        line.erase(line.find_last_not_of(' ') + 1);
        text += std::string(margin - 1 - displayWidth(label), ' ') + style.painted(label, TidyRole::quiet);
        text += (line.empty() ? "" : " ") + style.painted(line, TidyRole::strong) + "\n";
    }
    const std::string from = dayText(first);
    const std::string to = dayText(points.back().date);
    const std::size_t between = width > from.size() + to.size() ? width - from.size() - to.size() : 1;
    text += std::string(margin, ' ') + style.painted(from + std::string(between, ' ') + to, TidyRole::quiet) +
            "\n";
    return text;
}

} // namespace tarnwell
