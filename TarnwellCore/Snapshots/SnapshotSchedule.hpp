#pragma once

// When a scheduled snapshot is due, and which of those that were taken are kept. Days are calendar days of
// the user's time zone, by number (LocalDay.hpp).

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/LocalDay.hpp"
#include "TarnwellCore/Platform/UUID.hpp"
#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace tarnwell {

enum class SnapshotCadence : std::uint8_t { off, daily, weekly };

/// "off", "daily" or "weekly".
std::string_view rawValue(SnapshotCadence cadence);
std::optional<SnapshotCadence> snapshotCadenceFromRawValue(std::string_view text);

namespace SnapshotSchedule {

/// The number of a date's day.
using DayOf = std::function<std::int64_t(Date)>;

/// In how many calendar days the next one is due: 0 when it is due now, nothing when the cadence is off.
///
/// The first is due at once. Daily, the next is due from midnight on; weekly, from midnight seven days later;
/// it does not matter how many were missed meanwhile, for instance while the machine slept: one is due. A
/// last one that lies in the future (the clock was set back) counts as just taken, so that no day gets two;
/// but when it lies further ahead than the cadence is long, the date means nothing, and one is due.
std::optional<std::int64_t> daysUntilDue(SnapshotCadence cadence, std::optional<Date> lastAt, Date now,
                                         const DayOf& dayOf = localDay);

/// How many scheduled snapshots of a root are kept.
struct Retention {
    std::size_t daily = 14;
    std::size_t weekly = 8;
    std::size_t monthly = 12;
};

/// The scheduled snapshots that need not be kept; a snapshot that a person saved is never one of them. For
/// each root: of the newest so many days that have any, the newest of the day is kept; the same for weeks
/// (from Monday) and months. So gaps do not count, and what a day, a week and a month keep may be the same
/// one. The newest is always kept. In the order given, which may be any.
std::vector<UUID> superfluous(std::span<const ScanSnapshot> snapshots, const Retention& retention = {},
                              const DayOf& dayOf = localDay);

} // namespace SnapshotSchedule

} // namespace tarnwell
