#pragma once

// What becomes of memory that the program has let go of.

namespace tarnwell {

/// Has large blocks given back to the system as soon as they are freed, for a program that stays and now and
/// then needs much for a moment. Best before the first thread. Nothing happens where that is so anyway.
void giveLargeBlocksBack();

} // namespace tarnwell
