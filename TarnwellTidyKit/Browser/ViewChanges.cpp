// What has changed since a snapshot.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

namespace tarnwell {

void drawChanges(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (drawWaiting(pane, state.changes, "Comparing …"))
        return;
    if (!*state.changes.value) {
        drawNote(pane, "There is no snapshot of this folder yet: w takes one, to compare with later.");
        return;
    }
    const ChangesFound& found = **state.changes.value;
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(2);
        painter.figure(sizeWidth + 1, signedSize(found.delta.totalChange), Role::heading);
        painter.gap();
        painter.rest("since " + dayText(found.delta.before.createdAt) + ", snapshot " +
                         std::to_string(found.number + 1) + " of " + std::to_string(found.count),
                     Role::dim);
    }
    if (found.causes.empty()) {
        drawNote(pane, "Nothing has changed that snapshots would show.");
        return;
    }
    constexpr int kindWidth = 9;
    const bool hasSizes = pane.area.width >= 70;
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const SnapshotDelta::Change& change = found.delta.changes[found.causes[row]];
        painter.gap(2);
        painter.figure(sizeWidth + 1, signedSize(change.delta),
                       change.delta > 0 ? Role::warning : Role::good);
        painter.gap();
        painter.text(kindWidth, rawValue(change.kind), Role::dim);
        painter.gap();
        if (hasSizes) {
            painter.figure(sizeWidth, shortSize(change.before), Role::dim);
            painter.text(3, pane.isUnicode ? " → " : " > ", Role::dim);
            painter.figure(sizeWidth, shortSize(change.after), Role::dim);
            painter.gap();
        }
        painter.rest(change.path, Role::text, Cut::start);
    });
}

} // namespace tarnwell
