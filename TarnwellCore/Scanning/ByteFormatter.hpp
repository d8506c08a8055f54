#pragma once

// Byte counts and fractions as short text, the same in every output and every locale. Units are decimal:
// 1 KB is 1000 bytes. The unit is chosen before the number is rounded, so 999,600 bytes are "1000 KB".

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarnwell::ByteFormatter {

/// Unit names by power of 1000.
inline constexpr std::array<std::string_view, 7> units{"bytes", "KB", "MB", "GB", "TB", "PB", "EB"};

/// "999 bytes", "532 KB", "12 MB", "4.7 GB", "1 TB": one decimal from GB up while the number is below 100,
/// and none that is 0. Zero bytes are `zeroString`.
std::string string(std::int64_t bytes, std::string_view zeroString);

/// The same with exactly this many decimals from KB up ("1.00 GB"); zero is "0 bytes". A negative number of
/// decimals counts as none.
std::string string(std::int64_t bytes, int decimals);

/// For narrow places: "0", "512 B", "1.5 KB", "12 MB".
std::string compact(std::int64_t bytes);

/// A fraction in percent, held between 0 and 100; NaN is 100. What is above 0 and below 0.1 percent is
/// "<0.1%" whatever the decimals.
std::string percent(double fraction, int decimals);

} // namespace tarnwell::ByteFormatter
