#include "TarnwellCore/Analysis/Shell.hpp"

#include "TarnwellCore/Platform/ChildProcess.hpp"
#include "TarnwellCore/Platform/ProcessSpawn.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <chrono>
#include <system_error>
#include <utility>

namespace tarnwell::Shell {

namespace {

using Clock = ChildProcess::Clock;

/// How long the tool's own background processes may add to its output once it has ended.
constexpr auto outputGracePeriod = std::chrono::milliseconds(500);

/// Durations from here on are no limit: the clock's own range is not much wider.
constexpr double longestDuration = 1e9;

std::optional<Clock::time_point> deadlineAfter(double seconds) {
    if (!(seconds < longestDuration))
        return std::nullopt;
    const std::chrono::duration<double> duration(seconds > 0 ? seconds : 0);
    return Clock::now() + std::chrono::ceil<Clock::duration>(duration);
}

std::optional<ChildProcess> launch(const std::string& executable, const std::vector<std::string>& arguments) {
    if (!isExecutableFile(executable))
        return std::nullopt;
    return ChildProcess::launch(executable, arguments);
}

/// The result of a tool that has ended by itself.
CommandResult collectResult(ChildProcess& tool) {
    tool.collectRest(Clock::now() + outputGracePeriod);
    return {tool.terminationStatus(), repairedUTF8(tool.standardOutput()),
            repairedUTF8(tool.standardError())};
}

std::optional<CommandResult> runLimited(const std::string& executable,
                                        const std::vector<std::string>& arguments, double timeout,
                                        double killGracePeriod) {
    auto tool = launch(executable, arguments);
    if (!tool)
        return std::nullopt;
    if (tool->waitForExit(deadlineAfter(timeout)))
        return collectResult(*tool);
    tool->terminate();
    tool->discardOutput();
    tool->waitForExit(killGracePeriod > 0 ? deadlineAfter(killGracePeriod) : deadlineAfter(0));
    return CommandResult{timedOutExitCode, "", "timed out after " + decimalText(timeout) + "s"};
}

} // namespace

std::optional<CommandResult> run(const std::string& executable, const std::vector<std::string>& arguments,
                                 double /*timeout*/) {
    auto tool = launch(executable, arguments);
    if (!tool)
        return std::nullopt;
    tool->waitForExit(std::nullopt);
    return collectResult(*tool);
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
