#include "TarnwellCore/Platform/ToolRun.hpp"

#include "TarnwellCore/Platform/Linux/ChildProcess.hpp"

#include <sys/stat.h>
#include <unistd.h>

namespace tarnwell {

namespace {

using Clock = ChildProcess::Clock;

std::optional<Clock::time_point> deadlineAfter(std::optional<double> seconds) {
    if (!seconds)
        return std::nullopt;
    return Clock::now() + std::chrono::ceil<Clock::duration>(std::chrono::duration<double>(*seconds));
}

} // namespace

bool isExecutableFile(const std::string& path) {
    struct stat attributes = {};
    return ::stat(path.c_str(), &attributes) == 0 && S_ISREG(attributes.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

std::optional<ToolRun> runTool(const std::string& executable, const std::vector<std::string>& arguments,
                               const ToolTimeLimits& limits) {
    auto process = ChildProcess::launch(executable, arguments);
    if (!process)
        return std::nullopt;
    if (process->waitForExit(deadlineAfter(limits.timeout), limits.timeout ? std::nullopt : limits.heldUp)) {
        process->collectRest(Clock::now() + toolOutputGracePeriod);
        return ToolRun{false, process->terminationStatus(), process->standardOutput(),
                       process->standardError()};
    }
    process->terminate();
    process->discardOutput();
    process->waitForExit(deadlineAfter(limits.gracePeriod));
    return ToolRun{.hasTimedOut = true};
}

} // namespace tarnwell
