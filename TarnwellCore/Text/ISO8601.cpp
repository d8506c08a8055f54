#include "TarnwellCore/Text/ISO8601.hpp"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace tarnwell {

namespace {

using std::chrono::sys_seconds;

// 0001-01-01T00:00:00Z and 9999-12-31T23:59:59Z in seconds since 1970.
constexpr std::int64_t earliestSecond = -62'135'596'800;
constexpr std::int64_t latestSecond = 253'402'300'799;

/// Takes the next `count` decimal digits off the text; -1 when they are not all there.
int takeNumber(std::string_view& text, std::size_t count) {
    if (text.size() < count)
        return -1;
    int number = 0;
    for (const char digit : text.substr(0, count)) {
        if (digit < '0' || digit > '9')
            return -1;
        number = number * 10 + (digit - '0');
    }
    text.remove_prefix(count);
    return number;
}

bool takeCharacter(std::string_view& text, char character) {
    if (!text.starts_with(character))
        return false;
    text.remove_prefix(1);
    return true;
}

/// The seconds that local time is ahead of UTC, from a zone that is the whole text.
std::optional<std::int64_t> zoneOffset(std::string_view text) {
    if (text == "Z")
        return 0;
    const bool isBehind = text.starts_with('-');
    if (!isBehind && !text.starts_with('+'))
        return std::nullopt;
    text.remove_prefix(1);
    const int hours = takeNumber(text, 2);
    int minutes = 0;
    if (!text.empty()) {
        takeCharacter(text, ':');
        minutes = takeNumber(text, 2);
    }
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || !text.empty())
        return std::nullopt;
    const std::int64_t offset = hours * 3600 + minutes * 60;
    return isBehind ? -offset : offset;
}

} // namespace

std::optional<std::string> iso8601Text(Date date) {
    const double seconds = std::floor(date.time_since_epoch().count());
    if (!(seconds >= static_cast<double>(earliestSecond) && seconds <= static_cast<double>(latestSecond)))
        return std::nullopt;
    const sys_seconds time{std::chrono::seconds(static_cast<std::int64_t>(seconds))};
    const auto midnight = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day day(midnight);
    const std::chrono::hh_mm_ss clock(time - midnight);
    char text[64];
    const int length =
        std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(day.year()),
                      static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
                      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()));
    return std::string(text, static_cast<std::size_t>(length));
}

std::optional<Date> dateFromISO8601(std::string_view text) {
    const int year = takeNumber(text, 4);
    if (year < 0 || !takeCharacter(text, '-'))
        return std::nullopt;
    const int month = takeNumber(text, 2);
    if (month < 0 || !takeCharacter(text, '-'))
        return std::nullopt;
    const int day = takeNumber(text, 2);
    if (day < 0 || !takeCharacter(text, 'T'))
        return std::nullopt;
    const int hours = takeNumber(text, 2);
    if (hours < 0 || hours > 23 || !takeCharacter(text, ':'))
        return std::nullopt;
    const int minutes = takeNumber(text, 2);
    if (minutes < 0 || minutes > 59 || !takeCharacter(text, ':'))
        return std::nullopt;
    const int seconds = takeNumber(text, 2);
    const std::optional<std::int64_t> offset = zoneOffset(text);
    if (seconds < 0 || seconds > 59 || !offset)
        return std::nullopt;

    const std::chrono::year_month_day calendarDay(std::chrono::year(year),
                                                  std::chrono::month(static_cast<unsigned>(month)),
                                                  std::chrono::day(static_cast<unsigned>(day)));
    if (!calendarDay.ok())
        return std::nullopt;
    const sys_seconds midnight = std::chrono::sys_days(calendarDay);
    const std::int64_t time =
        midnight.time_since_epoch().count() + (std::int64_t{hours} * 60 + minutes) * 60 + seconds - *offset;
    if (time < earliestSecond || time > latestSecond)
        return std::nullopt;
    return Date(Date::duration(static_cast<double>(time)));
}

} // namespace tarnwell
