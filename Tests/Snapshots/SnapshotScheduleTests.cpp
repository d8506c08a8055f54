#include "TarnwellCore/Platform/FileLock.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Snapshots/ScheduledSnapshots.hpp"

#include "Tests/Support/SampleSnapshots.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <set>
#include <stdexcept>
#include <string>

namespace tarnwell {
namespace {

using enum SnapshotCadence;
using test::dateAt;
using test::TemporaryFolder;

constexpr double day = 86'400;

/// Days in UTC.
std::int64_t plainDay(Date date) {
    return static_cast<std::int64_t>(std::floor(date.time_since_epoch().count() / day));
}

/// The time zone of this test, and another again behind it.
class TimeZone {
public:
    explicit TimeZone(const char* name) {
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~TimeZone() {
        ::unsetenv("TZ");
        ::tzset();
    }
};

Date local(int month, int dayOfMonth, int hour, int minute = 0) {
    std::tm time = {};
    time.tm_year = 2025 - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = dayOfMonth;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_isdst = -1;
    return dateAt(static_cast<double>(std::mktime(&time)));
}

TEST(SnapshotSchedule, IsDueOnceACalendarDayOrWeek) {
    // Central European rules, without need of the system's tables.
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(localDay(local(10, 27, 0)) - localDay(local(10, 26, 0)), 1) << "a day of 25 hours";
    const struct {
        SnapshotCadence cadence;
        Date last;
        Date now;
        std::int64_t days;
        const char* why;
    } cases[] = {
        {daily, local(5, 1, 0), local(5, 1, 23, 59), 1, "the same day"},
        {daily, local(5, 1, 23, 59), local(5, 2, 0), 0, "a minute, but another day"},
        {daily, local(3, 29, 23, 30), local(3, 30, 0), 0, "into the day of 23 hours"},
        {daily, local(3, 30, 0), local(3, 30, 23, 59), 1, "through it"},
        {daily, local(10, 26, 0), local(10, 26, 23, 59), 1, "through the day of 25 hours"},
        {daily, local(10, 26, 23, 59), local(10, 27, 0), 0, "out of it"},
        {daily, local(5, 1, 9), local(6, 20, 9), 0, "slept for weeks"},
        {daily, local(5, 2, 0, 10), local(5, 1, 23, 50), 2, "clock set back over midnight"},
        {daily, local(5, 3, 0), local(5, 1, 23, 50), 0, "clock was days ahead"},
        {weekly, local(3, 25, 23), local(4, 1, 0), 0, "seven days, one of 23 hours"},
        {weekly, local(3, 25, 23), local(3, 31, 23, 59), 1, "six days"},
        {weekly, local(5, 8, 0), local(5, 1, 0, 1), 14, "a week ahead"},
        {weekly, local(6, 8, 0), local(5, 1, 0), 0, "more than that"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(SnapshotSchedule::daysUntilDue(each.cadence, each.last, each.now), each.days) << each.why;
    EXPECT_EQ(SnapshotSchedule::daysUntilDue(off, std::nullopt, dateAt(0)), std::nullopt);
    EXPECT_EQ(SnapshotSchedule::daysUntilDue(weekly, std::nullopt, dateAt(0)), 0);
    for (const double odd : {1e300, -1e300, 1e17, std::nan("")})
        localDay(dateAt(odd)); // within bounds, says the sanitizer
}

/// A schedule over substitutes, at noon of day `today`.
class ScheduledSnapshotsTest : public testing::Test {
protected:
    ScheduledSnapshots schedule() {
        ScheduledSnapshots schedule;
        schedule.cadence = [this] { return cadence; };
        schedule.root = [] { return "/home/alice"; };
        schedule.lastAt = [this] { return lastAt; };
        schedule.noteLastAt = [this](Date date) {
            if (failsToNote)
                throw std::runtime_error("not stored");
            lastAt = date;
        };
        schedule.scan = [this](const std::string& root, const CancellationToken&) {
            ++scans;
            ScanResult result;
            result.root = FileTreeBuilder(root).finish();
            return result;
        };
        schedule.store = store;
        schedule.now = [this] { return dateAt(static_cast<double>(today) * day + day / 2); };
        schedule.dayOf = plainDay;
        return schedule;
    }
    ScheduledRun::Outcome run() { return schedule().run().outcome; }

    std::set<std::int64_t> storedDays() const {
        std::set<std::int64_t> days;
        for (const ScanSnapshot& snapshot : store->list())
            if (snapshot.isScheduled) {
                EXPECT_TRUE(days.insert(plainDay(snapshot.createdAt)).second) << "two of one day";
            }
        return days;
    }

    TemporaryFolder folder;
    std::shared_ptr<SnapshotStore> store = std::make_shared<SnapshotStore>(folder.path());
    SnapshotCadence cadence = daily;
    std::optional<Date> lastAt;
    std::int64_t today = 20'000;
    bool failsToNote = false;
    int scans = 0;
};

TEST_F(ScheduledSnapshotsTest, TakesOneADayAndKeepsDaysWeeksAndMonths) {
    const ScanSnapshot own = test::makeSnapshot(1000);
    ScanSnapshot elsewhere = test::makeSnapshot(1000);
    elsewhere.rootPath = "/elsewhere";
    elsewhere.isScheduled = true;
    store->save(own);
    store->save(elsewhere);
    constexpr std::int64_t first = 20'000; // 2024-10-04, a Friday
    constexpr std::int64_t last = first + 420;
    for (today = first; today <= last; ++today) {
        EXPECT_EQ(run(), ScheduledRun::Outcome::taken);
        EXPECT_EQ(run(), ScheduledRun::Outcome::notDue);
    }
    EXPECT_EQ(scans, 421);
    // 2025-11-28, a Friday: 14 days, the Sundays of weeks before this one, the ends of months before this
    // one.
    std::set<std::int64_t> expected{plainDay(elsewhere.createdAt)};
    for (std::int64_t number = 0; number < 14; ++number)
        expected.insert(last - number);
    for (std::int64_t week = 0; week < 7; ++week)
        expected.insert(last - 5 - 7 * week);
    for (const int length : {0, 31, 61, 92, 123, 153, 184, 214, 245, 273, 304})
        expected.insert(last - 28 - length);
    EXPECT_EQ(storedDays(), expected);
    const auto stored = store->list();
    EXPECT_NE(std::ranges::find(stored, own), stored.end())
        << "a person's snapshot is nobody else's to remove";
}

TEST_F(ScheduledSnapshotsTest, DueAtMostOnceWhateverFails) {
    EXPECT_EQ(run(), ScheduledRun::Outcome::taken);
    ++today;
    failsToNote = true;
    const ScheduledRun unnoted = schedule().run();
    EXPECT_EQ(unnoted.outcome, ScheduledRun::Outcome::taken);
    EXPECT_THAT(unnoted.failures, testing::ElementsAre("not stored"));
    failsToNote = false;
    EXPECT_EQ(run(), ScheduledRun::Outcome::notDue) << "it is stored";
    EXPECT_EQ(plainDay(*lastAt), today);
    EXPECT_EQ(scans, 2);

    ++today;
    {
        const FileLock other(folder / "scheduled");
        EXPECT_EQ(run(), ScheduledRun::Outcome::busy);
    }
    ScheduledSnapshots failing = schedule();
    failing.scan = [](const std::string&, const CancellationToken&) -> ScanResult {
        throw std::runtime_error("no such folder");
    };
    EXPECT_THROW(failing.run(), std::runtime_error);
    EXPECT_EQ(run(), ScheduledRun::Outcome::taken) << "still due";
    EXPECT_EQ(schedule().run(true).outcome, ScheduledRun::Outcome::taken) << "asked for";
    cadence = off;
    ++today;
    EXPECT_EQ(run(), ScheduledRun::Outcome::off);
    EXPECT_EQ(scans, 4);
}

} // namespace
} // namespace tarnwell
