#pragma once

// How the actions run asynchronously: on a thread of their own, or, where the system gives no further
// thread, on the thread that asks for the result.

#include <future>
#include <system_error>

namespace tarnwell {

/// Runs `body` in the background. Dropping the future waits for it.
template <class Body>
auto runInBackground(Body body) {
    try {
        return std::async(std::launch::async, body);
    } catch (const std::system_error&) {
        return std::async(std::launch::deferred, body);
    }
}

} // namespace tarnwell
