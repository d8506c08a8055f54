// The volumes and how full they are: where one begins without a folder.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>

namespace tarnwell {

void drawLedger(const Pane& pane) {
    const BrowserState& state = pane.state;
    const int left = pane.area.column + 2;
    const int width = std::max(pane.area.width - 3, 0);
    int row = pane.area.row;
    const int end = pane.area.row + pane.area.height;
    if (!state.ledger.value) {
        pane.grid.putFitted(left, row, width,
                            state.ledger.failure.empty() ? "Asking the volume …" : state.ledger.failure,
                            {.role = state.ledger.failure.empty() ? Role::dim : Role::warning});
        return;
    }
    const VolumeLedger& ledger = *state.ledger.value;
    std::string title = "Where the bytes of the volume are";
    if (ledger.volume)
        title = "Where " + (ledger.used ? sizeText(*ledger.used) + " of " : std::string()) +
                shortPath(state, ledger.volume->path) + (ledger.used ? " are" : " is");
    if (row < end)
        pane.grid.putFitted(left, row++, width, title, {.role = Role::heading, .isBold = true}, Cut::middle);
    for (const LedgerLine& line : ledger.lines) {
        if (line.bytes == 0) // says nothing
            continue;
        if (row >= end)
            return;
        RowPainter painter(pane.grid, left, row++, width);
        painter.figure(sizeWidth + 1,
                       !line.bytes ? "?" : (line.isSubtracted ? "-" : "") + shortSize(*line.bytes),
                       line.bytes ? Role::text : Role::dim);
        painter.gap();
        std::string text(tarnwell::text(line.entry));
        if (line.count > 0)
            text += " (" + groupedNumber(line.count) + ")";
        painter.rest(text, line.entry == LedgerEntry::unexplained ? Role::warning : Role::dim);
    }
}

void drawVolumes(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (state.volumes.value == std::nullopt && state.lastFolder.empty() &&
        drawWaiting(pane, state.volumes, "Looking at the volumes …"))
        return;
    constexpr int nameWidth = 18;
    const bool hasKind = pane.area.width >= 100;
    const int barWidth = std::clamp(pane.area.width - 2 - nameWidth - 3 * (sizeWidth + 2) - 14, 0, 40);
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(2);
        painter.text(nameWidth, "Volume", Role::dim);
        painter.gap();
        if (barWidth >= 6) {
            painter.text(barWidth, "Used", Role::dim);
            painter.gap();
        }
        painter.figure(sizeWidth, "Free", Role::dim);
        painter.gap();
        painter.figure(sizeWidth, "Capacity", Role::dim);
        painter.gap();
        painter.rest("Where", Role::dim);
    }
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        painter.gap(2);
        const bool hasLast = !state.lastFolder.empty();
        if (hasLast && row == 0) {
            painter.text(nameWidth, "Last folder", Role::heading);
            painter.gap();
            painter.rest(shortPath(state, state.lastFolder), Role::link, Cut::start);
            return;
        }
        const VolumeInfo& volume = (*state.volumes.value)[row - (hasLast ? 1 : 0)];
        const bool isKnown = volume.totalCapacity > 0;
        const double used = isKnown ? 1 - shareOf(volume.availableCapacity, volume.totalCapacity) : 0;
        painter.text(nameWidth, volume.name, Role::link);
        painter.gap();
        if (barWidth >= 6) {
            painter.bar(barWidth, used,
                        used > 0.9    ? Role::danger
                        : used > 0.75 ? Role::warning
                                      : Role::bar,
                        pane.isUnicode);
            painter.gap();
        }
        painter.figure(sizeWidth, isKnown ? shortSize(volume.availableCapacity) : "?",
                       used > 0.9 ? Role::danger : Role::text);
        painter.gap();
        painter.figure(sizeWidth, isKnown ? shortSize(volume.totalCapacity) : "?", Role::dim);
        painter.gap();
        std::string kind = volume.fileSystemType;
        if (volume.isReadOnly)
            kind += ", read-only";
        if (volume.isNetwork)
            kind += ", network";
        painter.text(painter.room() - (hasKind ? 22 : 0), volume.path, Role::text, Side::left, Cut::start);
        painter.rest(hasKind ? kind : "", Role::dim);
    });
}

} // namespace tarnwell
