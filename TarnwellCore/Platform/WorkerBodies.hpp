#pragma once

// What the threads of WorkerThreads share on every system: what they run, how many run, and what went wrong
// first.

#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include <exception>
#include <functional>
#include <mutex>
#include <utility>

namespace tarnwell {

struct WorkerBodies {
    WorkerBodies(WorkerThreads::Body theBody, std::function<void()> theHook)
        : body(std::move(theBody)), beforeStart(std::move(theHook)) {}

    const WorkerThreads::Body body;
    const std::function<void()> beforeStart;
    std::mutex mutex;
    int regularCount = 1; // guarded by mutex until all are started, as is all below for good
    int runningCount = 0;
    std::exception_ptr firstFailure;

    /// Counts one more, unless `most` are running. All that start, start by this: so never more run at once
    /// than the larger of what `run` and `addOne` were given. Under the lock.
    bool takePlace(int most, WorkerThreads::Place& place) {
        if (runningCount >= most)
            return false;
        place = runningCount < regularCount ? WorkerThreads::Place::regular : WorkerThreads::Place::extra;
        ++runningCount;
        return true;
    }

    /// Never throws. `atEnd` is called under the lock.
    template <class AtEnd>
    void run(WorkerThreads::Place place, const AtEnd& atEnd) {
        std::exception_ptr failure;
        try {
            body(place);
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard guard(mutex);
        if (!firstFailure)
            firstFailure = failure;
        --runningCount;
        atEnd();
    }

    /// Once all have ended.
    void rethrowFirstFailure() const {
        if (firstFailure)
            std::rethrow_exception(firstFailure);
    }
};

} // namespace tarnwell
