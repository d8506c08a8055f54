#pragma once

// Points in time as documents carry them: "2024-05-01T09:30:00Z", in UTC, at whole seconds, in the Gregorian
// calendar of all years 0001 to 9999.

#include "TarnwellCore/Platform/Date.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace tarnwell {

/// The date's text; a fraction of a second is dropped towards the past. Nothing for a date outside the years
/// 0001 to 9999 or one that is not a number.
std::optional<std::string> iso8601Text(Date date);

/// The date of a text "YYYY-MM-DDThh:mm:ss" followed by "Z" or by an offset "+hh:mm", "+hhmm" or "+hh" (or
/// with "-"). Nothing for any other text, a day or time that does not exist, or a date that `iso8601Text`
/// could not write.
std::optional<Date> dateFromISO8601(std::string_view text);

} // namespace tarnwell
