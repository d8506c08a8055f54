#pragma once

// How what takes long runs asynchronously: on a thread of its own, or, where the system gives no further
// thread, at once on the thread that asks for it.

#include <future>
#include <system_error>
#include <type_traits>
#include <utility>

namespace tarnwell {

/// Runs `body` in the background; without a thread for that, to its end before this returns, so that the
/// future is ready. What `body` throws leaves the future. Dropping the future waits for it.
template <class Body>
std::future<std::invoke_result_t<Body&>> runInBackground(Body body) {
    try {
        return std::async(std::launch::async, body);
    } catch (const std::system_error&) { // no thread
        std::packaged_task<std::invoke_result_t<Body&>()> task(std::move(body));
        task();
        return task.get_future();
    }
}

} // namespace tarnwell
