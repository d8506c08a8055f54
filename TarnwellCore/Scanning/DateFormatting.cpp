#include "TarnwellCore/Scanning/DateFormatting.hpp"

#include "TarnwellCore/Platform/DateText.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarnwell::DateFormatting {

namespace {

constexpr double secondsPerDay = 86'400;

/// Seconds that every calendar can count with, some 300,000 years to either side. File times are whatever
/// somebody wrote into them.
constexpr double farthestDate = 1e13;

bool isKnown(const std::optional<Date>& date) {
    return date && !std::isnan(date->time_since_epoch().count());
}

Date withinCalendars(Date date) {
    return Date(Date::duration(std::clamp(date.time_since_epoch().count(), -farthestDate, farthestDate)));
}

/// Cut off toward zero, held within the integer's range.
std::int64_t wholeNumber(double value) {
    constexpr double bound = 9.2e18;
    return std::isnan(value) ? 0 : static_cast<std::int64_t>(std::clamp(value, -bound, bound));
}

} // namespace

std::string relativeString(std::optional<Date> date, Date relativeTo) {
    if (!isKnown(date) || !isKnown(relativeTo))
        return "Unknown";
    return localizedRelativeDate(withinCalendars(*date), withinCalendars(relativeTo));
}

std::string absoluteString(std::optional<Date> date) {
    return isKnown(date) ? localizedMediumDate(withinCalendars(*date)) : "Unknown";
}

std::optional<std::int64_t> daysSince(std::optional<Date> date, Date reference) {
    if (!isKnown(date))
        return std::nullopt;
    return wholeNumber((reference - *date).count() / secondsPerDay);
}

bool isOlderThan(std::int64_t days, std::optional<Date> date, Date reference) {
    return isKnown(date) && (reference - *date).count() > static_cast<double>(days) * secondsPerDay;
}

std::string durationString(double seconds) {
    // Room for the longest double in "%.0f".
    char buffer[400];
    int length = 0;
    if (seconds < 1) {
        length = std::snprintf(buffer, sizeof buffer, "%.0f ms", seconds * 1000);
    } else if (seconds < 60) {
        length = std::snprintf(buffer, sizeof buffer, "%.2f s", seconds);
    } else {
        const long long whole = wholeNumber(seconds);
        length = std::snprintf(buffer, sizeof buffer, "%lld m %02lld s", whole / 60, whole % 60);
    }
    return {buffer, static_cast<std::size_t>(length)};
}

} // namespace tarnwell::DateFormatting
