#include "TarnwellCore/Snapshots/ScheduledSnapshots.hpp"

#include "TarnwellCore/Platform/FileLock.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

namespace tarnwell {

namespace {

/// The date of the newest snapshot that the schedule took of this root; nothing when it took none.
std::optional<Date> newestScheduled(const std::vector<ScanSnapshot>& newestFirst, const std::string& root) {
    const auto found = std::ranges::find_if(newestFirst, [&](const ScanSnapshot& snapshot) {
        return snapshot.isScheduled && snapshot.rootPath == root;
    });
    return found != newestFirst.end() ? std::optional(found->createdAt) : std::nullopt;
}

} // namespace

ScheduledRun ScheduledSnapshots::run(bool isForced, const CancellationToken& token) const {
    ScheduledRun result;
    const auto note = [&](const auto& step) {
        try {
            step();
        } catch (const std::exception& error) {
            result.failures.emplace_back(error.what());
        }
    };
    const SnapshotCadence chosen = cadence();
    const std::optional<std::string> folder = root();
    if (!folder || folder->empty() || (chosen == SnapshotCadence::off && !isForced))
        return result;
    result.outcome = ScheduledRun::Outcome::notDue;
    const auto isDue = [&](std::optional<Date> last) {
        return isForced || SnapshotSchedule::daysUntilDue(chosen, last, now(), dayOf) == 0;
    };
    // Asked first without the lock: this is the answer nearly always.
    if (!isDue(lastAt()))
        return result;
    std::optional<FileLock> turn;
    try {
        turn.emplace(store->directory() / "scheduled", FileCalls::live(), std::chrono::milliseconds(0));
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::device_or_resource_busy)
            throw;
        result.outcome = ScheduledRun::Outcome::busy;
        return result;
    }
    if (!isDue(lastAt()))
        return result;
    if (!isForced) {
        // One whose date was never noted.
        const std::optional<Date> stored = newestScheduled(store->list(), DiskScanner::normalize(*folder));
        if (stored && !isDue(stored)) {
            note([&] { noteLastAt(*stored); });
            return result;
        }
    }

    const ScanResult scanned = scan(*folder, token);
    ScanSnapshot snapshot =
        ScanSnapshot::capture(scanned, ScanSnapshot::storedDepth, ScanSnapshot::storedMinimumSize);
    snapshot.createdAt = now();
    snapshot.isScheduled = true;
    store->save(snapshot);
    result.outcome = ScheduledRun::Outcome::taken;
    note([&] { noteLastAt(snapshot.createdAt); });
    note([&] { noteScan(scanned); });
    note([&] {
        for (const UUID& id : SnapshotSchedule::superfluous(store->list(), retention, dayOf))
            note([&] {
                store->deleteSnapshot(id);
                result.removed.push_back(id);
            });
    });
    result.snapshot = std::move(snapshot);
    return result;
}

} // namespace tarnwell
