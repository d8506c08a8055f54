#pragma once

// Threads that work on one task until it is done.

#include <cstdint>
#include <functional>
#include <memory>

namespace tarnwell {

/// Processors that this process may use; at least 1.
int activeProcessorCount();

/// How often the calling thread has waited for something other than a processor: a disk, a network, another
/// thread. Only differences mean something. Always 0 where the system does not count it for each thread.
std::int64_t waitsOfThisThread();

class WorkerThreads {
public:
    /// `body` is called with 0, 1, 2 and so on, at the same time on different threads.
    explicit WorkerThreads(std::function<void(int)> body);
    ~WorkerThreads();
    WorkerThreads(const WorkerThreads&) = delete;
    WorkerThreads& operator=(const WorkerThreads&) = delete;

    /// Runs `body(0)` to `body(count - 1)` at the same time, at the priority of work a user waits for, and
    /// returns when all have returned, and all that were added. With a count below 2, `body(0)` runs on the
    /// calling thread. Where the system gives fewer threads than asked for, fewer bodies run: at least one
    /// always does. An exception that leaves a body is rethrown here, the first one wins, once every body has
    /// ended. Called once.
    void run(int count);

    /// Runs `body` once more beside those that run, with the next number or one whose body has returned; not
    /// when `most` run already or the system has no thread to give. Called from within a body, by any number
    /// of them at once.
    void addOne(int most);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace tarnwell
