// Files of equal contents, in groups.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

namespace tarnwell {

void drawDuplicates(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (!state.duplicates.value && !state.duplicates.isLoading() && state.duplicates.failure.empty()) {
        drawNote(
            pane,
            state.tree == nullptr || state.isScanning()
                ? "This comes when the scan is done."
                : "Enter looks for files of equal contents below this folder. It reads files of equal size.");
        return;
    }
    if (drawWaiting(pane, state.duplicates, "Reading files of equal size …"))
        return;
    const DuplicateResult& result = **state.duplicates.value;
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(2);
        painter.figure(sizeWidth, "Wasted", Role::dim);
        painter.gap();
        painter.rest(countedText(static_cast<std::int64_t>(result.groups.size()), "group", "groups") + ", " +
                         sizeText(result.totals.waste) + " in all",
                     Role::dim);
    }
    if (result.groups.empty()) {
        drawNote(pane, "No two files here have the same contents.");
        return;
    }
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const DuplicateRow& place = state.duplicateRows[row];
        const DuplicateGroup& group = result.groups[place.group];
        if (place.member == DuplicateRow::none) {
            painter.gap(2);
            painter.figure(sizeWidth, shortSize(group.waste));
            painter.gap();
            painter.rest(countedText(static_cast<std::int64_t>(group.files.size()), "file", "files") +
                             " of " + sizeText(group.size),
                         Role::heading);
            return;
        }
        const DuplicateMember& member = group.members[place.member];
        const DuplicateFile& file = group.files[member.file];
        painter.text(2, state.marks.covers(*member.node) ? (pane.isUnicode ? "●" : "*") : "", Role::heading);
        painter.gap(sizeWidth + 4);
        const bool isLink = place.member > 0 && group.areLinks(place.member, place.member - 1);
        const std::string_view note = isLink               ? "link of the one above  "
                                      : file.cloneSet != 0 ? "shares blocks  "
                                                           : "";
        painter.text(static_cast<int>(note.size()), note, Role::dim);
        painter.rest(pathBelow(state, *member.node), Role::text, Cut::start);
    });
}

} // namespace tarnwell
