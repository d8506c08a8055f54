#include "TarnwellCore/Snapshots/SnapshotSchedule.hpp"

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::pair<SnapshotCadence, std::string_view> cadenceNames[] = {
    {SnapshotCadence::off, "off"}, {SnapshotCadence::daily, "daily"}, {SnapshotCadence::weekly, "weekly"}};

/// Weeks begin on Mondays; day 0 was a Thursday.
std::int64_t weekOf(std::int64_t day) {
    const std::int64_t sinceMonday = day + 3;
    return (sinceMonday >= 0 ? sinceMonday : sinceMonday - 6) / 7;
}

std::int64_t monthOf(std::int64_t day) {
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
    return std::int64_t{int(date.year())} * 12 + unsigned(date.month());
}

} // namespace

std::string_view rawValue(SnapshotCadence cadence) {
    return std::ranges::find(cadenceNames, cadence, &std::pair<SnapshotCadence, std::string_view>::first)
        ->second;
}

std::optional<SnapshotCadence> snapshotCadenceFromRawValue(std::string_view text) {
    for (const auto& [cadence, name] : cadenceNames)
        if (name == text)
            return cadence;
    return std::nullopt;
}

std::optional<std::int64_t> SnapshotSchedule::daysUntilDue(SnapshotCadence cadence,
                                                           std::optional<Date> lastAt, Date now,
                                                           const DayOf& dayOf) {
    if (cadence == SnapshotCadence::off)
        return std::nullopt;
    if (!lastAt)
        return 0;
    const std::int64_t length = cadence == SnapshotCadence::daily ? 1 : 7;
    if (*lastAt - now > std::chrono::days(length))
        return 0;
    return std::max<std::int64_t>(0, dayOf(*lastAt) + length - dayOf(now));
}

std::vector<UUID> SnapshotSchedule::superfluous(std::span<const ScanSnapshot> snapshots,
                                                const Retention& retention, const DayOf& dayOf) {
    std::map<std::string, std::vector<const ScanSnapshot*>> byRoot;
    for (const ScanSnapshot& snapshot : snapshots)
        if (snapshot.isScheduled)
            byRoot[snapshot.rootPath].push_back(&snapshot);
    std::set<UUID> kept;
    for (auto& [root, newestFirst] : byRoot) {
        std::ranges::stable_sort(newestFirst, std::greater(), &ScanSnapshot::createdAt);
        kept.insert(newestFirst.front()->id);
        const auto keepNewestOfEach = [&](std::size_t count, const auto& periodOf) {
            std::set<std::int64_t> periods;
            for (const ScanSnapshot* snapshot : newestFirst) {
                if (periods.size() == count)
                    break;
                if (periods.insert(periodOf(dayOf(snapshot->createdAt))).second)
                    kept.insert(snapshot->id);
            }
        };
        keepNewestOfEach(retention.daily, [](std::int64_t day) { return day; });
        keepNewestOfEach(retention.weekly, weekOf);
        keepNewestOfEach(retention.monthly, monthOf);
    }
    std::vector<UUID> rest;
    for (const ScanSnapshot& snapshot : snapshots)
        if (snapshot.isScheduled && !kept.contains(snapshot.id))
            rest.push_back(snapshot.id);
    return rest;
}

} // namespace tarnwell
