#pragma once

// How events change the state. None of these waits for anything: what takes time is asked for in
// `BrowserState::requests`, and comes back as an event.

#include "TarnwellTidyKit/Browser/BrowserState.hpp"
#include "TarnwellTidyKit/Screen/Event.hpp"

#include <cstddef>

namespace tarnwell {

/// A place that was clicked, in terms of what is shown there.
struct BrowserClick {
    enum class Kind : std::uint8_t { row, tile, view };
    Kind kind = Kind::row;
    /// The row, the tile's place in the map, or the view's number.
    std::size_t number = 0;
};

/// The first requests: scans the folder, or shows the volumes when it is empty.
void begin(BrowserState& state, const std::string& folder);
void update(BrowserState& state, const KeyPress& press);
void update(BrowserState& state, const Pasted& pasted);
void update(BrowserState& state, const BrowserClick& click);
void update(BrowserState& state, BrowserEvent event);
/// So many rows further, for wheels.
void scroll(BrowserState& state, std::ptrdiff_t rows);
/// How much can be seen at once.
void setRoom(BrowserState& state, std::size_t rowsSeen, double mapWidth, double mapHeight);
/// Asks for the end; what is remembered is stored first.
void quit(BrowserState& state);

} // namespace tarnwell
