#include "TarnwellCore/Platform/ScheduledJob.hpp"

#include "TarnwellCore/Platform/Linux/ConfigurationFolder.hpp"

namespace tarnwell {

ScheduledJobPlan planForThisSystem(const ScheduledJob& job) {
    return SystemdUser::plan(job, configurationFolder());
}

} // namespace tarnwell
