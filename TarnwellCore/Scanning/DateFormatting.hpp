#pragma once

// Dates and durations as text. Dates follow the user's language, durations do not.

#include "TarnwellCore/Platform/Date.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace tarnwell::DateFormatting {

/// The date relative to another in full words ("yesterday", "2 weeks ago"); "Unknown" without a date.
std::string relativeString(std::optional<Date> date, Date relativeTo);

/// The date in the medium style with the time in the short style; "Unknown" without a date.
std::string absoluteString(std::optional<Date> date);

/// Whole days of 86,400 seconds from the date to the reference, cut off toward zero; negative for a date
/// after the reference.
std::optional<std::int64_t> daysSince(std::optional<Date> date, Date reference);

/// Whether more than this many days of 86,400 seconds lie between the date and the reference; false without
/// a date.
bool isOlderThan(std::int64_t days, std::optional<Date> date, Date reference);

/// "250 ms", "12.34 s", "2 m 05 s".
std::string durationString(double seconds);

} // namespace tarnwell::DateFormatting
