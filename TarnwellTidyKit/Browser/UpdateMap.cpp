#include "TarnwellTidyKit/Browser/UpdateParts.hpp"

#include <cmath>

namespace tarnwell::BrowserParts {

void moveInMap(BrowserState& state, BrowserCommand command) {
    if (!state.map.value || state.map.value->empty())
        return;
    const std::vector<TreemapItem>& tiles = *state.map.value;
    if (state.tile >= tiles.size() || tiles[state.tile].depth != 0)
        state.tile = 0;
    if (command == BrowserCommand::first) {
        state.tile = 0;
        return;
    }
    if (command == BrowserCommand::last) {
        for (std::size_t place = 0; place < tiles.size(); ++place)
            if (tiles[place].depth == 0)
                state.tile = place;
        return;
    }
    const auto middle = [](const TreemapItem& tile) {
        return Point{tile.rect.minX() + tile.rect.width() / 2, tile.rect.minY() + tile.rect.height() / 2};
    };
    const Point here = middle(tiles[state.tile]);
    std::size_t best = state.tile;
    double nearest = 0;
    for (std::size_t place = 0; place < tiles.size(); ++place) {
        if (tiles[place].depth != 0 || place == state.tile)
            continue;
        const Point there = middle(tiles[place]);
        const bool isSideways = command == BrowserCommand::left || command == BrowserCommand::right;
        const bool isForward = command == BrowserCommand::right || command == BrowserCommand::down;
        const double along = (isSideways ? there.x - here.x : there.y - here.y) * (isForward ? 1 : -1);
        const double across = std::abs(isSideways ? there.y - here.y : there.x - here.x);
        if (along <= 0.25)
            continue;
        // What lies straight ahead comes before what is nearer but aside.
        const double distance = along + 2 * across;
        if (best == state.tile || distance < nearest) {
            best = place;
            nearest = distance;
        }
    }
    state.tile = best;
}

} // namespace tarnwell::BrowserParts
