#pragma once

// Decides when a volume has so little room left that its user should know: once for each dip. A volume that
// hovers around the threshold warns once, and again only after its room has grown back past a margin.

#include "TarnwellCore/Scanning/VolumeInfo.hpp"

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace tarnwell {

/// A plain value that belongs to one thread at a time. Sizes in bytes.
struct DiskSpaceAlertPolicy {
    struct Alert {
        std::string volumeName;
        std::string volumePath;
        std::int64_t availableBytes = 0;

        bool operator==(const Alert&) const = default;
    };

    /// A volume warns when less than this is available. Below 1, none ever does.
    std::int64_t threshold = 0;
    /// What must be available beyond the threshold before a volume may warn again.
    std::int64_t rearmMargin = 0;
    /// The paths of the volumes that have warned and not recovered since.
    std::set<std::string> latched;

    /// Without a margin it is `margin(threshold)`.
    explicit DiskSpaceAlertPolicy(std::int64_t alertThreshold,
                                  std::optional<std::int64_t> margin = std::nullopt);

    /// A tenth of a positive threshold, otherwise 0.
    static std::int64_t margin(std::int64_t threshold);

    /// Whether a warning about this volume could help: not about what is not browsable, read-only, of the
    /// network or of no known capacity.
    static bool isEligible(const VolumeInfo& volume);

    /// The volumes to warn about now, in the order given. `volumes` is all that is mounted: a volume that is
    /// missing there may warn again once it is back.
    std::vector<Alert> evaluate(std::span<const VolumeInfo> volumes);
};

} // namespace tarnwell
