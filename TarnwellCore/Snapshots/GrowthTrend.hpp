#pragma once

// How fast a folder grows, and when the volume is full if it goes on like that.

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"
#include "TarnwellCore/Snapshots/ScanRecord.hpp"

#include <cstddef>
#include <optional>
#include <span>

namespace tarnwell {

/// A plain value.
struct GrowthTrend {
    /// Negative when the folder shrinks. A day is 86,400 seconds.
    double bytesPerDay = 0;
    /// When the free bytes of the newest scan that knows them are used up by the growth in allocated bytes,
    /// whatever the size mode. It may lie in the past, when the last scan does. Nothing when the folder does
    /// not grow, when no scan knows the free bytes, or when it takes longer than 100 years.
    std::optional<Date> fullAt;
    /// The scans it was made from.
    std::size_t count = 0;

    bool operator==(const GrowthTrend&) const = default;

    /// From the scans of one root, in any order: the Theil–Sen estimator (H. Theil 1950, P. K. Sen 1968), the
    /// median of the slopes between any two scans. Up to 29 % of the scans may be off by any amount. Of more
    /// than 1,000 scans the newest are taken. Nothing unless two scans ended at different times.
    static std::optional<GrowthTrend> of(std::span<const ScanRecord> series, SizeMode mode);
};

} // namespace tarnwell
