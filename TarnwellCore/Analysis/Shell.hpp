#pragma once

// Runs the system's own tools. In spite of the name no shell takes part: arguments reach the tool as they
// are. A tool gets an empty standard input, this process's environment and working folder and none of its
// descriptors; on Linux no signal is blocked or ignored in it, whatever this process does with its own. Its
// two outputs are read at the same time and come back whole. A tool that writes more than 64 MiB to one of
// them is held up: it waits in its write, and memory is not filled with what no caller of this could use,
// until its time is up.

#include "TarnwellCore/Analysis/CommandResult.hpp"

#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <vector>

/// Safe from many threads at once. The result is nothing when the tool cannot be started: a path that is no
/// executable file, a NUL in a text, on macOS an argument that is not UTF-8, a system out of processes,
/// threads or descriptors. A tool that starts and fails has a result with its exit code.
///
/// The result is ready when the tool itself has ended. Processes that it leaves in the background may hold
/// its outputs open; what they write within half a second still counts, after that nobody waits for them.
namespace tarnwell::Shell {

/// The exit code of a run that was ended by its time-out.
inline constexpr std::int32_t timedOutExitCode = -9;

/// Waits for the tool to end. `timeout` (seconds) is not enforced here: use `runAsync` for tools that may
/// hang. Only for a tool that is held up it is the time after which that one is asked to terminate, with the
/// result of a time-out.
std::optional<CommandResult> run(const std::string& executable, const std::vector<std::string>& arguments,
                                 double timeout);

/// Both durations are in seconds. After `timeout` the tool is asked to terminate; the result is then
/// `timedOutExitCode` with "timed out after <timeout>s" as its standard error, and is ready when the tool
/// ends or, at the latest, after `killGracePeriod`. A tool that ignores the request is never killed: it is
/// left to run, and reaped when it ends.
///
/// A timeout of zero or less asks at once; infinity and NaN set no limit. For the grace period zero, less or
/// NaN mean not to wait, infinity to wait for the tool's end.
///
/// Dropping the future waits for the result.
std::future<std::optional<CommandResult>> runAsync(std::string executable, std::vector<std::string> arguments,
                                                   double timeout, double killGracePeriod);

} // namespace tarnwell::Shell
