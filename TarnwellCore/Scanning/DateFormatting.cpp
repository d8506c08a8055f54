#include "TarnwellCore/Scanning/DateFormatting.hpp"

#include "TarnwellCore/Platform/DateText.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"

#include <algorithm>
#include <cmath>
#include <string>

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
    std::string text;
    if (seconds < 1) {
        appendFixedDecimals(text, seconds * 1000, 0);
        text += " ms";
    } else if (seconds < 60) {
        appendFixedDecimals(text, seconds, 2);
        text += " s";
    } else {
        const std::int64_t whole = wholeNumber(seconds);
        const std::string rest = std::to_string(whole % 60);
        text = std::to_string(whole / 60) + (rest.size() < 2 ? " m 0" : " m ") + rest + " s";
    }
    return text;
}

} // namespace tarnwell::DateFormatting
