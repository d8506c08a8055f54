#include "TarnwellCore/Platform/LocalDay.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>

namespace tarnwell {

std::int64_t localDay(Date date) {
    // Within the years that a struct tm and std::chrono can hold.
    constexpr double farthest = 30'000 * 365.25 * 86'400;
    const double seconds = date.time_since_epoch().count();
    const auto time = static_cast<std::time_t>(
        std::floor(std::isnan(seconds) ? 0 : std::clamp(seconds, -farthest, farthest)));
    ::tzset(); // the user may have travelled since
    std::tm local = {};
    if (::localtime_r(&time, &local) == nullptr)
        return static_cast<std::int64_t>(std::floor(static_cast<double>(time) / 86'400));
    const std::chrono::year_month_day day(std::chrono::year(local.tm_year + 1900),
                                          std::chrono::month(static_cast<unsigned>(local.tm_mon + 1)),
                                          std::chrono::day(static_cast<unsigned>(local.tm_mday)));
    return std::chrono::sys_days(day).time_since_epoch().count();
}

} // namespace tarnwell
