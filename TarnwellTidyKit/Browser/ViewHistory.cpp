// The scans of the past: a chart of their sizes, and how fast the folder grows.

#include "TarnwellCore/Scanning/DateFormatting.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace tarnwell {

bool hasHistoryChart(const BrowserState& state) {
    if (state.view != BrowserView::history || !state.history.value)
        return false;
    const std::vector<ScanRecord>& series = state.history.value->series;
    return series.size() > 1 && series.back().finishedAt > series.front().finishedAt;
}

void drawHistoryChart(const Pane& pane) {
    static constexpr std::array<std::string_view, 9> eighths = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const std::vector<ScanRecord>& series = pane.state.history.value->series;
    const SizeMode mode = pane.state.choice.mode;
    const auto sizeOf = [mode](const ScanRecord& record) { return record.totalSizeFor(mode); };
    const std::int64_t least = sizeOf(*std::ranges::min_element(series, {}, sizeOf));
    const std::int64_t most = sizeOf(*std::ranges::max_element(series, {}, sizeOf));
    const int left = pane.area.column + 1 + sizeWidth + 1;
    const int width = pane.area.width - (left - pane.area.column) - 1;
    const int height = pane.area.height - 2; // below it the days, and a blank line
    const int top = pane.area.row;
    const auto label = [&](int row, std::int64_t bytes) {
        pane.grid.putPadded(pane.area.column + 1, row, sizeWidth, shortSize(bytes), {.role = Role::dim},
                            Side::right);
    };
    label(top, most);
    if (most > least)
        label(top + height - 1, least);
    const Date first = series.front().finishedAt;
    const double span = (series.back().finishedAt - first).count();
    const double range = static_cast<double>(most) - static_cast<double>(least);
    std::size_t place = 0;
    for (int column = 0; column < width; ++column) {
        // What was known last at that time.
        const double time = span * (column + 1) / width;
        while (place + 1 < series.size() && (series[place + 1].finishedAt - first).count() <= time)
            ++place;
        const double above = static_cast<double>(sizeOf(series[place])) - static_cast<double>(least);
        const double part = range > 0 ? above / range : 0.5;
        const int filled = 1 + static_cast<int>(std::lround(part * (height * 8 - 1)));
        for (int row = 0; row < height; ++row) {
            const int rest = std::clamp(filled - (height - 1 - row) * 8, 0, 8);
            if (rest > 0)
                pane.grid.put(left + column, top + row,
                              pane.isUnicode ? eighths[static_cast<std::size_t>(rest)]
                              : rest >= 4    ? "#"
                                             : "_",
                              {.role = Role::bar});
        }
    }
    const std::string from = dayText(first);
    const std::string to = dayText(series.back().finishedAt);
    pane.grid.put(left, top + height, from, {.role = Role::dim});
    pane.grid.put(left + width - static_cast<int>(to.size()), top + height, to, {.role = Role::dim});
}

void drawHistory(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (drawWaiting(pane, state.history, "Reading the history …"))
        return;
    const HistoryFound& found = *state.history.value;
    const SizeMode mode = state.choice.mode;
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(1);
        std::string text = countedText(static_cast<std::int64_t>(found.series.size()), "scan", "scans");
        if (found.trend) {
            constexpr double most = 9e18;
            const double daily = found.trend->bytesPerDay;
            if (std::isfinite(daily))
                text += ", " + signedSize(static_cast<std::int64_t>(std::clamp(daily, -most, most))) +
                        " a day on disk";
            if (found.trend->fullAt)
                text += ", full on " + dayText(found.trend->fullAt);
        }
        painter.rest(text, Role::dim);
    }
    if (found.series.empty()) {
        drawNote(pane, "No scan of this folder has been noted yet.");
        return;
    }
    std::int64_t largest = 0;
    for (const ScanRecord& record : found.series)
        largest = std::max(largest, record.totalSizeFor(mode));
    constexpr int dateWidth = 10;
    constexpr int countWidth = 12;
    const bool hasCount = pane.area.width >= 60;
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        // The newest first, with what it has gained since the one before.
        const std::size_t place = found.series.size() - 1 - row;
        const ScanRecord& record = found.series[place];
        const std::int64_t size = record.totalSizeFor(mode);
        painter.gap(1);
        painter.text(dateWidth, dayText(record.finishedAt), Role::dim);
        painter.gap();
        painter.figure(sizeWidth, shortSize(size));
        painter.gap();
        const std::int64_t change = place == 0 ? 0 : size - found.series[place - 1].totalSizeFor(mode);
        painter.figure(sizeWidth,
                       place == 0    ? ""
                       : change == 0 ? "="
                                     : signedSize(change),
                       change > 0   ? Role::warning
                       : change < 0 ? Role::good
                                    : Role::dim);
        painter.gap();
        if (hasCount) {
            painter.figure(countWidth, groupedNumber(record.fileCount), Role::dim);
            painter.gap();
        }
        painter.bar(std::max(painter.room() - 1, 0), shareOf(size, largest), Role::bar, pane.isUnicode);
    });
}

} // namespace tarnwell
