#pragma once

// Memory straight from the system, for what is large and lives long.

#include <cstddef>

namespace tarnwell {

/// Multiples of this may be backed by large pages: writing to fresh memory then interrupts the program once
/// in two mebibytes and not once in four kibibytes.
inline constexpr std::size_t largePageSize = std::size_t{2} << 20;

/// `length` bytes of zeros, a multiple of 64 KiB; they count as used once they are touched, by the page.
/// Throws std::bad_alloc.
void* mapPages(std::size_t length);

/// Gives back what `mapPages` returned for this length.
void unmapPages(void* pages, std::size_t length) noexcept;

} // namespace tarnwell
