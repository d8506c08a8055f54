#pragma once

// Control-C, so that the program ends at once and yet nothing is left half done.
//
// The entry point calls `interrupt` from a thread that waits for signals, then `waitForActs`, and ends the
// process. A command that changes something does each indivisible step as an Act: between two of them it is
// called off, in the middle of one the end waits. Reading, however long the kernel takes for it, is no act
// and holds nobody up.

#include "TarnwellCore/Scanning/CancellationToken.hpp"

#include <condition_variable>
#include <exception>
#include <mutex>

namespace tarnwell {

/// Thrown where a command is called off.
class TidyInterrupted : public std::exception {
public:
    const char* what() const noexcept override { return "Interrupted."; }
};

/// Every function is safe from any thread.
class TidyInterruption {
public:
    /// Cancelled as soon as the program is interrupted.
    const CancellationToken& token() const { return token_; }
    bool isInterrupted() const;

    void interrupt();
    /// Returns when no act is under way; none begins after `interrupt`.
    void waitForActs();

    /// A step that must not be cut in two. Throws TidyInterrupted when the program was interrupted before.
    class Act {
    public:
        explicit Act(TidyInterruption& interruption);
        ~Act();
        Act(const Act&) = delete;
        Act& operator=(const Act&) = delete;

    private:
        TidyInterruption& interruption_;
    };

private:
    CancellationToken token_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool isInterrupted_ = false; // guarded by mutex_
    int actCount_ = 0;           // guarded by mutex_
};

} // namespace tarnwell
