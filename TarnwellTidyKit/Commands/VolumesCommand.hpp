#pragma once

// volumes: what is mounted and how full it is, once or as long as somebody watches.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct VolumesRequest {
    bool watch = false;
    /// Looks at the volumes that a watch ends after; forever when absent.
    std::optional<std::int64_t> updates = {};
    /// Seconds between two looks; as the settings have it when absent.
    std::optional<double> interval = {};
    TidyOutputChoices output;

    bool operator==(const VolumesRequest&) const = default;

    static const TidyCommandSpec spec;
    static VolumesRequest read(const TidyArguments& arguments);
};

TidyResult run(const VolumesRequest& request, TidyContext& context);

} // namespace tarnwell
