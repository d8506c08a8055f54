#pragma once

// A program that this process has started and whose output it collects, always from both pipes at once, so
// that a program that fills one of them while nobody reads it never stands still.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// Confined to one thread at a time. A program that is still running when its ChildProcess goes away is left
/// to run: a background thread discards its output and reaps it when it ends.
class ChildProcess {
public:
    using Clock = std::chrono::steady_clock;

    /// Starts the program, without a shell, with an empty standard input. Nothing when it cannot be started.
    static std::optional<ChildProcess> launch(const std::string& executable,
                                              const std::vector<std::string>& arguments);

    ~ChildProcess();
    ChildProcess(ChildProcess&&) noexcept;
    ChildProcess& operator=(ChildProcess&&) noexcept;

    /// Collects output until the program has ended and is reaped, or until the deadline; without a deadline
    /// as long as it takes. Returns whether the program has ended. A pipe that has given `mostToolOutput`
    /// bytes is not read any further, so that the program waits; `heldUpLimit`, in seconds, ends such a wait.
    bool waitForExit(std::optional<Clock::time_point> deadline, std::optional<double> heldUpLimit = {});

    /// After the end: collects what the pipes still hold, up to their end. A program started by the program
    /// may keep them open; the deadline is for that.
    void collectRest(Clock::time_point deadline);

    /// Politely asks the program to end (SIGTERM). Does nothing once it has ended.
    void terminate();

    /// Drops what has been collected and what will come.
    void discardOutput();

    /// After the end: the exit status, or the number of the signal that ended the program; -1 where the host
    /// ignores SIGCHLD, since the system keeps no status then.
    std::int32_t terminationStatus() const;

    /// The bytes collected so far.
    const std::string& standardOutput() const;
    const std::string& standardError() const;

private:
    struct State;
    explicit ChildProcess(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace tarnwell
