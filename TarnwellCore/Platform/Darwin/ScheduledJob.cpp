#include "TarnwellCore/Platform/ScheduledJob.hpp"

#include "TarnwellCore/Platform/UserPaths.hpp"

#include <unistd.h>

namespace tarnwell {

ScheduledJobPlan planForThisSystem(const ScheduledJob& job) {
    return LaunchAgent::plan(job, homeDirectory(), ::getuid());
}

} // namespace tarnwell
