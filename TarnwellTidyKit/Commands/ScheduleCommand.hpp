#pragma once

// schedule: snapshots by the calendar.

#include "TarnwellCore/Snapshots/SnapshotSchedule.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

#include <string>

namespace tarnwell {

struct ScheduleRequest {
    enum class Verb : std::uint8_t { show, set, run };

    Verb verb = Verb::show;
    /// To be set.
    SnapshotCadence cadence = SnapshotCadence::off;
    std::string folder = {};
    /// Take a snapshot whether or not one is due.
    bool force = false;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const ScheduleRequest&) const = default;

    static const TidyCommandSpec spec;
    static ScheduleRequest read(const TidyArguments& arguments);
};

TidyResult run(const ScheduleRequest& request, TidyContext& context);

} // namespace tarnwell
