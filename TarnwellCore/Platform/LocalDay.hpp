#pragma once

// Calendar days where the user is.

#include "TarnwellCore/Platform/Date.hpp"

#include <cstdint>

namespace tarnwell {

/// The number of a date's calendar day in the user's time zone as it is now; day 0 is 1970-01-01. So days
/// differ by 1 whether they have 23, 24 or 25 hours. A date beyond what the system can tell a day of is in
/// the first or the last one that it can. Safe from any thread.
std::int64_t localDay(Date date);

} // namespace tarnwell
