#pragma once

// What stands around every view: the title, the names of the views, the line of news, the keys, questions.

#include "TarnwellTidyKit/Browser/BrowserView.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"

#include <optional>

namespace tarnwell {

void drawTitle(const Pane& pane);
void drawTabs(const Pane& pane);
/// The view whose name stands in a column of the tabs.
std::optional<BrowserView> tabAt(const BrowserState& state, const GridArea& area, int column);
void drawStatus(const Pane& pane);
void drawKeys(const Pane& pane);
/// The place of the cursor.
std::optional<GridPoint> drawPrompt(const Pane& line, const Pane& note, const Pane& body);
void drawQuestion(const Pane& line, const Pane& body);

} // namespace tarnwell
