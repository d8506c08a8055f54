// The user's rules, and what they match here.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>

namespace tarnwell {

void drawRules(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (drawWaiting(pane, state.rules, "Looking what the rules match …"))
        return;
    const RulesFound& found = *state.rules.value;
    constexpr int stateWidth = 3;
    constexpr int countWidth = 12;
    const bool hasCount = pane.area.width >= 50;
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(2);
        painter.figure(sizeWidth, "Matches", Role::dim);
        painter.gap();
        if (hasCount) {
            painter.gap(countWidth);
            painter.gap();
        }
        painter.gap(stateWidth + 2);
        painter.rest("Rule", Role::dim);
    }
    if (found.rules.empty()) {
        drawNote(pane, "There are no rules; n makes one.");
        return;
    }
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const CleanupRule& rule = found.rules[row];
        const auto match =
            std::ranges::find(found.matches, rule.id, [](const RuleMatch& each) { return each.rule.id; });
        const bool hasMatch = match != found.matches.end();
        painter.gap(2);
        painter.figure(sizeWidth,
                       hasMatch         ? shortSize(match->totalSize)
                       : pane.isUnicode ? "–"
                                        : "-",
                       hasMatch ? Role::text : Role::dim);
        painter.gap();
        if (hasCount) {
            painter.figure(countWidth, hasMatch ? countedText(match->itemCount, "item", "items") : "",
                           Role::dim);
            painter.gap();
        }
        painter.text(stateWidth, rule.isEnabled ? "on" : "off", rule.isEnabled ? Role::good : Role::dim);
        painter.gap();
        const int nameWidth = std::max(painter.room() * 2 / 5, std::min(painter.room(), 20));
        painter.text(nameWidth, rule.name, rule.isEnabled ? Role::text : Role::dim);
        painter.gap();
        painter.rest(rule.conditionSummary(), Role::dim);
    });
}

} // namespace tarnwell
