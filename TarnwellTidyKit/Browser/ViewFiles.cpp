// The largest files, and what a search has found.

#include "TarnwellTidyKit/Browser/SoughtLetters.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

namespace tarnwell {

namespace {

void drawFiles(const Pane& pane, const std::vector<const FileNode*>& nodes, std::string_view head,
               const std::vector<TextCondition>& names = {}) {
    const BrowserState& state = pane.state;
    const SizeMode mode = state.choice.mode;
    constexpr int dateWidth = 10;
    const bool hasDate = pane.area.width >= 60;
    const bool hasCategory = pane.area.width >= 100;
    constexpr int categoryWidth = 14;
    const auto columns = [&](RowPainter& painter, std::string_view sign, std::string_view size,
                             std::string_view date, std::string_view category, Role accent, Role role) {
        painter.text(2, sign, Role::heading);
        painter.figure(sizeWidth, size, role);
        painter.gap();
        if (hasDate) {
            painter.text(dateWidth, date, Role::dim);
            painter.gap();
        }
        if (hasCategory) {
            painter.text(categoryWidth, category, accent);
            painter.gap();
        }
    };
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        columns(painter, "", modeName(mode), "Modified", "Category", Role::dim, Role::dim);
        painter.rest(head, Role::dim);
    }
    if (nodes.empty()) {
        drawNote(pane, "There is none.");
        return;
    }
    SoughtLetters sought(names);
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const FileNode& node = *nodes[row];
        const BrowserEntry entry = TreeEntries::entryOf(node, *state.removals);
        const bool isKnown = entry.modificationSeconds != FileNode::missingTime;
        columns(painter, state.marks.covers(node) ? (pane.isUnicode ? "●" : "*") : "",
                shortSize(entry.sizeFor(mode)),
                isKnown ? dayText(dateFromReferenceSeconds(entry.modificationSeconds)) : "",
                displayName(node.category), roleOf(node.category), Role::text);
        const GridArea line = painter.line();
        painter.rest(pathBelow(state, node) + (node.isDirectory() ? "/" : ""), markOf(entry).role,
                     Cut::start);
        sought.showInPath(pane.grid, line);
    });
}

} // namespace

void drawLargest(const Pane& pane) {
    if (!drawWaiting(pane, pane.state.figures, "Looking …"))
        drawFiles(pane, pane.state.figures.value->largestFiles, "Largest files below this folder");
}

void drawFound(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (drawWaiting(pane, state.found, "Searching …"))
        return;
    const SearchTotals& totals = state.found.value->totals;
    const std::int64_t size = state.choice.mode == SizeMode::apparent    ? totals.size
                              : state.choice.mode == SizeMode::allocated ? totals.allocatedSize
                                                                         : totals.reclaimableSize;
    std::string head =
        state.foundText + ": " + countedText(totals.count, "match", "matches") + ", " + sizeText(size);
    if (totals.count > static_cast<std::int64_t>(state.found.value->nodes.size()))
        head += ", the largest are shown";
    drawFiles(pane, state.found.value->nodes, head,
              state.foundBy ? state.foundBy->names : std::vector<TextCondition>());
}

} // namespace tarnwell
