#pragma once

// Points in time as the whole system passes them: seconds with a fraction, on the system clock.

#include <chrono>

namespace tarnwell {

/// A point in time; the fraction of a second is kept.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<double>>;

/// Seconds from 1970-01-01 to 2001-01-01, both 00:00:00 UTC. File times are counted from the latter.
inline constexpr double referenceDateOffset = 978'307'200.0;

inline Date currentDate() {
    return std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
}

inline Date dateFromReferenceSeconds(double seconds) {
    return Date(Date::duration(seconds + referenceDateOffset));
}

inline double referenceSeconds(Date date) {
    return date.time_since_epoch().count() - referenceDateOffset;
}

} // namespace tarnwell
