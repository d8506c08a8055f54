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
    /// Whether a thread fills one of the places that `run` was asked for, or came on top of them.
    enum class Place : bool { regular, extra };
    /// Called on several threads at the same time. They have no numbers: what each needs of its own, it makes
    /// or borrows itself.
    using Body = std::function<void(Place)>;

    /// `beforeStart`, for tests, is called on the calling thread before `run` starts each of the others:
    /// those that run already may add some meanwhile. A std::system_error that it throws stands for that of a
    /// system without a thread to give.
    explicit WorkerThreads(Body body, std::function<void()> beforeStart = {});
    ~WorkerThreads();
    WorkerThreads(const WorkerThreads&) = delete;
    WorkerThreads& operator=(const WorkerThreads&) = delete;

    /// Runs `body` so many times at once, at the priority of work a user waits for, and returns when all have
    /// returned, and all that were added. With a count below 2 it runs on the calling thread. Where the
    /// system gives fewer threads than asked for, fewer bodies run: at least one always does. An exception
    /// that leaves a body is rethrown here, the first one wins, once every body has ended. Called once.
    void run(int count);

    /// Whether a body may itself run others: not where the system lends its threads, for all of them may be
    /// waiting then.
    static bool mayBeNested();

    /// Runs `body` once more beside those that run; not when `most` run already or the system has no thread
    /// to give. While `run` has not yet started as many as it was asked for, it fills one of their places.
    /// Called from within a body, by any number of them at once.
    void addOne(int most);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace tarnwell
