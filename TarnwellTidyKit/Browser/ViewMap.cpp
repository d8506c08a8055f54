// The folder as tiles, in half blocks: a cell is two points high.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tarnwell {

namespace {

/// Whole points of a tile, at the same place for neighbours.
struct Points {
    int left;
    int top;
    int right;
    int bottom;

    Points(const Rect& rect, int width, int height)
        : left(std::clamp(static_cast<int>(std::lround(rect.minX())), 0, width)),
          top(std::clamp(static_cast<int>(std::lround(rect.minY())), 0, height)),
          right(std::clamp(static_cast<int>(std::lround(rect.maxX())), 0, width)),
          bottom(std::clamp(static_cast<int>(std::lround(rect.maxY())), 0, height)) {}
};

Role roleOfTile(const TreemapItem& tile) {
    if (tile.node == nullptr)
        return Role::barTrack;
    return tile.node->isDirectory() ? Role::barTrack : roleOf(tile.node->category);
}

} // namespace

void drawMap(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (drawWaiting(pane, state.map, "Laying out …"))
        return;
    const std::vector<TreemapItem>& tiles = *state.map.value;
    if (tiles.empty()) {
        drawNote(pane, "Nothing here takes up space.");
        return;
    }
    const int width = pane.area.width;
    const int height = pane.area.height * 2;
    if (width <= 0 || height <= 0)
        return;
    std::vector<Role> points(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                             Role::ground);
    const auto at = [&](int column, int row) -> Role& {
        return points[static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
                      static_cast<std::size_t>(column)];
    };
    for (const TreemapItem& tile : tiles) {
        const Points place(tile.rect, width, height);
        for (int row = place.top; row < place.bottom; ++row)
            for (int column = place.left; column < place.right; ++column)
                at(column, row) = roleOfTile(tile);
    }
    // A gap at the right and the lower side of what stands directly in the folder, where it is large enough.
    for (const TreemapItem& tile : tiles) {
        if (tile.depth != 0)
            continue;
        const Points place(tile.rect, width, height);
        if (place.right - place.left > 2 && place.right < width)
            for (int row = place.top; row < place.bottom; ++row)
                at(place.right - 1, row) = Role::ground;
        if (place.bottom - place.top > 2 && place.bottom < height)
            for (int column = place.left; column < place.right; ++column)
                at(column, place.bottom - 1) = Role::ground;
    }
    for (int row = 0; row < pane.area.height; ++row)
        for (int column = 0; column < width; ++column)
            pane.grid.halves(pane.area.column + column, pane.area.row + row, at(column, row * 2),
                             at(column, row * 2 + 1));
    // Names, on the first row that is wholly the tile's.
    for (std::size_t number = 0; number < tiles.size(); ++number) {
        const TreemapItem& tile = tiles[number];
        if (tile.depth != 0)
            continue;
        const Points place(tile.rect, width, height);
        const int row = (place.top + 1) / 2;
        const int room = place.right - place.left - 1;
        const bool isSelected = number == state.tile;
        const bool isMarked = tile.node != nullptr && state.marks.covers(*tile.node);
        if (isSelected || isMarked)
            pane.grid.restyle({pane.area.column + place.left, pane.area.row + row, std::max(room, 1),
                               std::max(place.bottom / 2 - row, 1)},
                              [&](Style style) { return style.selected(isSelected).marked(isMarked); });
        if (room < 3 || place.bottom / 2 <= row)
            continue;
        const std::string name = tile.node != nullptr ? std::string(tile.node->displayName()) +
                                                            (tile.node->isDirectory() ? "/" : "")
                                                      : std::to_string(tile.aggregatedCount) + " small";
        const Style style{.role = Role::text,
                          .fill = at(place.left, row * 2),
                          .isSelected = isSelected,
                          .isMarked = isMarked,
                          .isBold = isSelected};
        const auto line = [&](int below, std::string_view text) {
            // On one colour throughout, so that it can be read.
            pane.grid.fill({pane.area.column + place.left, pane.area.row + row + below, room, 1}, style);
            pane.grid.putFitted(pane.area.column + place.left, pane.area.row + row + below, room, text,
                                style);
        };
        line(0, name);
        if (place.bottom / 2 - row > 2)
            line(1, shortSize(tile.value));
    }
}

} // namespace tarnwell
