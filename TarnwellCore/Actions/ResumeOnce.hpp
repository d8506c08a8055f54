#pragma once

// Platform completion handlers may call back from any thread, and more than once; whoever waits is woken by
// the first call only.

#include "TarnwellCore/Platform/UnfairLock.hpp"

#include <utility>

namespace tarnwell {

/// Shared by the waiting operation's call-backs; safe from any thread.
class ResumeOnce {
public:
    ResumeOnce() = default;
    ResumeOnce(const ResumeOnce&) = delete;
    ResumeOnce& operator=(const ResumeOnce&) = delete;

    /// Runs `resume` for the first caller, outside of the lock; does nothing for all others.
    template <class Resume>
    void operator()(Resume&& resume) {
        if (!lock_.withLock([this] { return std::exchange(fired_, true); }))
            std::forward<Resume>(resume)();
    }

private:
    UnfairLock lock_;
    bool fired_ = false; // guarded by lock_
};

} // namespace tarnwell
