#include "TarnwellCore/Snapshots/GrowthTrend.hpp"

#include <algorithm>
#include <functional>
#include <vector>

namespace tarnwell {

namespace {

constexpr double secondsPerDay = 86'400;

/// The middle value, of an even number the mean of the two in the middle. There is at least one.
double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    if (values.size() % 2 == 1)
        return *middle;
    return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

std::optional<double> medianSlope(std::span<const ScanRecord* const> scans, SizeMode mode) {
    std::vector<double> slopes;
    slopes.reserve(scans.size() * (scans.size() - 1) / 2);
    for (std::size_t later = 1; later < scans.size(); ++later)
        for (std::size_t earlier = 0; earlier < later; ++earlier) {
            const double days =
                (scans[later]->finishedAt - scans[earlier]->finishedAt).count() / secondsPerDay;
            // Differences of doubles: sizes of a foreign file may be anything.
            const double bytes = static_cast<double>(scans[later]->totalSizeFor(mode)) -
                                 static_cast<double>(scans[earlier]->totalSizeFor(mode));
            if (days != 0)
                slopes.push_back(bytes / days);
        }
    return slopes.empty() ? std::nullopt : std::optional(median(slopes));
}

std::optional<Date> fullDate(std::span<const ScanRecord* const> newestFirst, double allocatedPerDay) {
    constexpr double farthest = 100 * 365.25;
    const auto known = std::ranges::find_if(
        newestFirst, [](const ScanRecord* scan) { return scan->volume && scan->volume->free >= 0; });
    if (known == newestFirst.end() || allocatedPerDay <= 0)
        return std::nullopt;
    const double days = static_cast<double>((*known)->volume->free) / allocatedPerDay;
    if (days > farthest)
        return std::nullopt;
    return (*known)->finishedAt + Date::duration(days * secondsPerDay);
}

} // namespace

std::optional<GrowthTrend> GrowthTrend::of(std::span<const ScanRecord> series, SizeMode mode) {
    constexpr std::size_t most = 1000;
    std::vector<const ScanRecord*> newestFirst;
    for (const ScanRecord& record : series)
        newestFirst.push_back(&record);
    std::ranges::stable_sort(newestFirst, std::greater(), &ScanRecord::finishedAt);
    newestFirst.resize(std::min(newestFirst.size(), most));
    if (newestFirst.size() < 2)
        return std::nullopt;
    const std::optional<double> growth = medianSlope(newestFirst, mode);
    if (!growth)
        return std::nullopt;
    const double allocated =
        mode == SizeMode::allocated ? *growth : *medianSlope(newestFirst, SizeMode::allocated);
    return GrowthTrend{
        .bytesPerDay = *growth, .fullAt = fullDate(newestFirst, allocated), .count = newestFirst.size()};
}

} // namespace tarnwell
