#include "TarnwellCore/Scanning/DiskSpaceAlertPolicy.hpp"

#include <string_view>

namespace tarnwell {

DiskSpaceAlertPolicy::DiskSpaceAlertPolicy(std::int64_t alertThreshold, std::optional<std::int64_t> margin)
    : threshold(alertThreshold),
      rearmMargin(margin ? *margin : DiskSpaceAlertPolicy::margin(alertThreshold)) {}

std::int64_t DiskSpaceAlertPolicy::margin(std::int64_t threshold) {
    return threshold > 0 ? threshold / 10 : 0;
}

bool DiskSpaceAlertPolicy::isEligible(const VolumeInfo& volume) {
    return volume.totalCapacity >= 1 && volume.isBrowsable && !volume.isReadOnly && !volume.isNetwork;
}

std::vector<DiskSpaceAlertPolicy::Alert> DiskSpaceAlertPolicy::evaluate(std::span<const VolumeInfo> volumes) {
    std::set<std::string_view> present;
    std::vector<const VolumeInfo*> eligible; // each path once
    for (const VolumeInfo& volume : volumes) {
        if (isEligible(volume) && present.insert(volume.path).second)
            eligible.push_back(&volume);
    }
    std::erase_if(latched, [&](const std::string& path) { return !present.contains(path); });
    if (threshold < 1)
        return {};

    std::int64_t releaseLevel = 0;
    // A level beyond all numbers is never exceeded.
    const bool canRelease = !__builtin_add_overflow(threshold, rearmMargin, &releaseLevel);
    std::vector<Alert> alerts;
    for (const VolumeInfo* volume : eligible) {
        if (latched.contains(volume->path)) {
            if (canRelease && volume->availableCapacity > releaseLevel)
                latched.erase(volume->path);
        } else if (volume->availableCapacity < threshold) {
            alerts.push_back({volume->name, volume->path, volume->availableCapacity});
            latched.insert(volume->path);
        }
    }
    return alerts;
}

} // namespace tarnwell
