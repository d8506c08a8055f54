#pragma once

// Sizes and ages as people type them.

#include "TarnwellCore/Platform/Date.hpp"

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

/// A finite decimal number such as "2.5", in the notation of no particular language. Nothing for any other
/// text.
std::optional<double> numberFromText(std::string_view text);

/// Bytes of a text such as "4096", "500MB", "1.5 GiB" or "2g": B, K, KB … E, EB are powers of 1000, KiB … EiB
/// powers of 1024, in any letter case, after an optional blank. A fraction of a byte is dropped. Nothing for
/// any other text and for what has no room in 64 bits.
std::optional<std::int64_t> sizeFromText(std::string_view text);

/// `later` - `earlier`, or the nearest number there is: sizes of a file that others may write can be
/// anything.
std::int64_t sizeDifference(std::int64_t later, std::int64_t earlier);

/// The moment that a text names: so long before `now` for "12h", "30d", "6w", "3mo" (of 30 days) and "1y" (of
/// 365); the beginning of a day of the user's for "2024-05-01"; exactly that for "2024-05-01T09:30:00Z".
/// Nothing for any other text.
std::optional<Date> momentFromText(std::string_view text, Date now);

/// Whole days of a text such as "30d", "6w" or "1y"; nothing for any other text.
std::optional<std::int64_t> daysFromText(std::string_view text);

} // namespace tarnwell
