#pragma once

// What is drawn: pure functions from the state and a size to a grid of cells. A new view is a file of its own
// and a row in the table of BrowserViews.cpp.

#include "TarnwellTidyKit/Browser/BrowserState.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Screen/Grid.hpp"

#include <optional>

namespace tarnwell {

/// Where the parts of the screen lie; those for which there is no room are empty.
struct BrowserLayout {
    GridArea title;
    GridArea tabs;
    GridArea heads;
    /// Over the rows of the history.
    GridArea chart;
    GridArea body;
    /// Of the item; with the volumes, the ledger.
    GridArea details;
    GridArea status;
    GridArea keys;
};
BrowserLayout layoutOf(const BrowserState& state, GridSize size);

struct BrowserPicture {
    Grid grid;
    /// The cursor of a line that is typed into.
    std::optional<GridPoint> cursor = {};
};
BrowserPicture drawn(const BrowserState& state, GridSize size, bool isUnicode);

/// What a click there means.
std::optional<BrowserClick> whatIsAt(const BrowserState& state, GridSize size, GridPoint point);

/// Tells the state how much of it can be seen.
void fitTo(BrowserState& state, GridSize size);

} // namespace tarnwell
