#pragma once

// Runs a program of the system and collects what it writes, always from both pipes at once, so that a program
// that fills one of them while nobody reads it never stands still.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// Seconds from 0 up; nothing stands for no limit.
struct ToolTimeLimits {
    /// After this the tool is asked to end (SIGTERM).
    std::optional<double> timeout;
    /// After this, counted from then, it is left to itself.
    std::optional<double> gracePeriod;
    /// For a tool without a time-out: how long it may be held up for what it writes before it is asked to
    /// end.
    std::optional<double> heldUp = {};
};

/// How a tool that was started ended.
struct ToolRun {
    /// It was asked to end; the other members say nothing then.
    bool hasTimedOut = false;
    /// The exit status, or the number of the signal that ended the tool. On Linux -1 where the host ignores
    /// SIGCHLD, since the system keeps no status then.
    std::int32_t status = 0;
    /// All that was written, as bytes.
    std::string standardOutput = {};
    std::string standardError = {};
};

/// So much of what a tool writes to each of its two pipes is kept. Beyond, the pipe is not read: the tool
/// waits in its next write, as any program does whose reader is slow, until its time is up. Nothing of its
/// answer is cut.
inline constexpr std::size_t mostToolOutput = std::size_t{64} << 20;

/// How long processes that a tool leaves in the background may add to its output once it has ended.
inline constexpr std::chrono::milliseconds toolOutputGracePeriod(500);

/// Whether the path, links followed, leads to a file that this process may execute.
bool isExecutableFile(const std::string& path);

// Both start the tool at an absolute path, without a shell, and block until it has ended and is reaped, or is
// left to itself. It gets an empty standard input, this process's environment and working folder, and no
// descriptor of this process. Nothing when it cannot be started. No text holds a NUL. Safe from any thread.

/// A tool that is left to itself may go on writing, which nobody reads, and is reaped when it ends.
std::optional<ToolRun> runTool(const std::string& executable, const std::vector<std::string>& arguments,
                               const ToolTimeLimits& limits);

} // namespace tarnwell
