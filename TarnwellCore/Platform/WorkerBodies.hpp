#pragma once

// What the threads of WorkerThreads share on every system: what they run, which numbers are free again, and
// what went wrong first.

#include <algorithm>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace tarnwell {

struct WorkerBodies {
    explicit WorkerBodies(std::function<void(int)> theBody) : body(std::move(theBody)) {}

    const std::function<void(int)> body;
    std::mutex mutex;
    std::vector<int> freeNumbers; // guarded by mutex, as is the failure
    std::exception_ptr firstFailure;

    /// Before a number is given for the first time: nothing may fail when its body ends. Throws
    /// std::bad_alloc.
    void reserveNumbers(int count) { freeNumbers.reserve(static_cast<std::size_t>(std::max(count, 1))); }

    /// Never throws, once the number is reserved.
    void run(int number) {
        std::exception_ptr failure;
        try {
            body(number);
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard guard(mutex);
        if (!firstFailure)
            firstFailure = failure;
        freeNumbers.push_back(number);
    }

    /// Once all have ended.
    void rethrowFirstFailure() const {
        if (firstFailure)
            std::rethrow_exception(firstFailure);
    }
};

} // namespace tarnwell
