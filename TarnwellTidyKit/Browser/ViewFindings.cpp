// Where space piles up, and what can be done about it.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/FindingsCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

namespace tarnwell {

namespace {

Role screenRoleOf(CleanupSafety safety) {
    return safety == CleanupSafety::safe           ? Role::good
           : safety == CleanupSafety::reviewNeeded ? Role::warning
                                                   : Role::danger;
}

} // namespace

void drawFindings(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (drawWaiting(pane, state.findings, "Looking through the places where space piles up …"))
        return;
    const std::vector<SpaceSaverFinding>& findings = *state.findings.value;
    constexpr int safetyWidth = 14;
    const bool hasSafety = pane.area.width >= 60;
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(2);
        painter.figure(sizeWidth, "Frees", Role::dim);
        painter.gap();
        painter.rest("all together at least " + sizeText(freeableBytes(findings)), Role::dim);
    }
    if (findings.empty()) {
        drawNote(pane, "Nothing worth clearing was found.");
        return;
    }
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const SpaceSaverFinding& finding = findings[row];
        painter.gap(2);
        painter.figure(sizeWidth, finding.sizeIsKnown ? shortSize(finding.reclaimableSize) : "?");
        painter.gap();
        if (hasSafety) {
            painter.text(safetyWidth, displayName(finding.safety), screenRoleOf(finding.safety));
            painter.gap();
        }
        const int titleWidth = std::max(painter.room() * 2 / 5, std::min(painter.room(), 20));
        painter.text(titleWidth, finding.title, hasSafety ? Role::text : screenRoleOf(finding.safety));
        painter.gap();
        painter.rest(actionText(finding.action), Role::dim);
    });
}

} // namespace tarnwell
