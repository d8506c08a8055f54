#include "TarnwellCore/Analysis/Shell.hpp"

#include "TarnwellCore/Platform/ToolRun.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>
#include <system_error>
#include <utility>

namespace tarnwell::Shell {

namespace {

/// Durations from here on, and those that are no number, are no limit: clocks do not reach much further.
std::optional<double> timeLimit(double seconds) {
    constexpr double longest = 1e9;
    return seconds < longest ? std::optional(std::max(seconds, 0.0)) : std::nullopt;
}

/// Whether the tool is there and its texts can be handed over.
bool canStart(const std::string& executable, const std::vector<std::string>& arguments) {
    const auto holdsNUL = [](const std::string& text) { return text.find('\0') != std::string::npos; };
    return !holdsNUL(executable) && std::ranges::none_of(arguments, holdsNUL) && isExecutableFile(executable);
}

CommandResult resultOf(const ToolRun& run, double timeout) {
    if (run.hasTimedOut)
        return {timedOutExitCode, "", "timed out after " + decimalText(timeout) + "s"};
    return {run.status, repairedUTF8(run.standardOutput), repairedUTF8(run.standardError)};
}

std::optional<CommandResult> runLimited(const std::string& executable,
                                        const std::vector<std::string>& arguments, double timeout,
                                        double killGracePeriod) {
    if (!canStart(executable, arguments))
        return std::nullopt;
    const ToolTimeLimits limits{.timeout = timeLimit(timeout),
                                .gracePeriod = killGracePeriod > 0 ? timeLimit(killGracePeriod) : 0.0};
    const std::optional<ToolRun> run = runTool(executable, arguments, limits);
    if (!run)
        return std::nullopt;
    return resultOf(*run, timeout);
}

} // namespace

std::optional<CommandResult> run(const std::string& executable, const std::vector<std::string>& arguments,
                                 double timeout) {
    if (!canStart(executable, arguments))
        return std::nullopt;
    // Nobody but this process keeps a tool that is held up from ending.
    const ToolTimeLimits limits{.timeout = {}, .gracePeriod = 0.0, .heldUp = timeLimit(timeout)};
    const std::optional<ToolRun> run = runTool(executable, arguments, limits);
    if (!run)
        return std::nullopt;
    return resultOf(*run, timeout);
}

std::future<std::optional<CommandResult>> runAsync(std::string executable, std::vector<std::string> arguments,
                                                   double timeout, double killGracePeriod) {
    try {
        return std::async(std::launch::async, runLimited, std::move(executable), std::move(arguments),
                          timeout, killGracePeriod);
    } catch (const std::system_error&) {
        std::promise<std::optional<CommandResult>> nothing;
        nothing.set_value(std::nullopt);
        return nothing.get_future();
    }
}

} // namespace tarnwell::Shell
