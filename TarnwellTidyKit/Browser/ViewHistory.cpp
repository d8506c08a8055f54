// The scans of the past: a chart of their sizes, and how fast the folder grows.

#include "TarnwellCore/Scanning/DateFormatting.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>

namespace tarnwell {

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
            text += ", " + signedSize(static_cast<std::int64_t>(found.trend->bytesPerDay)) + " a day";
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
