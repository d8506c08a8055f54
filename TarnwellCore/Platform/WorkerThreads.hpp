#pragma once

// Threads that work on one task until it is done.

#include <functional>

namespace tarnwell {

/// Processors that this process may use; at least 1.
int activeProcessorCount();

/// Runs `body(0)` to `body(count - 1)` at the same time, at the priority of work a user waits for, and
/// returns when all have returned. With a count below 2, `body(0)` runs on the calling thread. Where the
/// system gives fewer threads than asked for, fewer bodies run: at least one always does. An exception
/// that leaves a body is rethrown here, the first one wins, once every body has ended.
void runWorkers(int count, const std::function<void(int)>& body);

} // namespace tarnwell
