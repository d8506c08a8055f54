#pragma once

// Viewers leave out what the user has moved to the Trash: outcomes, told to the tracker of the tree.

#include "TarnwellCore/Actions/TrashOutcome.hpp"
#include "TarnwellCore/Layout/RemovalTracker.hpp"

#include <cstddef>
#include <span>

namespace tarnwell {

/// Notes what was moved; what failed is still there. Returns how many nodes of the tree are gone by that.
/// Safe from any thread. (Undoing notes with `RemovalTracker::noteRestored` what is back under its own name.)
std::size_t noteMoved(RemovalTracker& tracker, std::span<const TrashOutcome> outcomes);

} // namespace tarnwell
