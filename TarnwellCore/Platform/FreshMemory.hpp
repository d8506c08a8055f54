#pragma once

// Pages of memory that were mapped and not yet touched.

#include <cstddef>

namespace tarnwell {

/// Has the system put memory behind whole pages at once, which else takes an interruption for each page when
/// it is written first, and two when it is read first. They stay as they are, zeros; nothing happens where
/// the system has no such call or no memory.
void populate(void* pages, std::size_t length);

} // namespace tarnwell
