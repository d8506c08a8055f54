#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tarnwell {

int activeProcessorCount() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (::sched_getaffinity(0, sizeof allowed, &allowed) == 0)
        return std::max(1, CPU_COUNT(&allowed));
    // A machine with more processors than the set has room for.
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

std::int64_t waitsOfThisThread() {
    struct rusage used = {};
    return ::getrusage(RUSAGE_THREAD, &used) == 0 ? used.ru_nvcsw : 0;
}

struct WorkerThreads::State {
    explicit State(std::function<void(int)> theBody) : body(std::move(theBody)) {}

    const std::function<void(int)> body;
    std::mutex mutex;
    std::vector<std::thread> threads; // guarded by mutex, as is all below
    int started = 1;                  // the calling thread is one of the workers: it would only wait otherwise
    std::exception_ptr firstFailure;

    void runBody(int index) {
        try {
            body(index);
        } catch (...) {
            const std::lock_guard guard(mutex);
            if (!firstFailure)
                firstFailure = std::current_exception();
        }
    }
};

WorkerThreads::WorkerThreads(std::function<void(int)> body) : state_(new State(std::move(body))) {}
WorkerThreads::~WorkerThreads() = default;

void WorkerThreads::addOne(int most) {
    State& state = *state_;
    const std::lock_guard guard(state.mutex);
    if (state.started >= most)
        return;
    try {
        state.threads.emplace_back([&state, index = state.started] { state.runBody(index); });
        ++state.started;
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // No more threads or no memory for them: those that run are enough.
    }
}

void WorkerThreads::run(int count) {
    for (int added = 1; added < count; ++added)
        addOne(count);
    state_->runBody(0);
    for (;;) { // those that are waited for may add others
        std::vector<std::thread> threads;
        {
            const std::lock_guard guard(state_->mutex);
            threads.swap(state_->threads);
        }
        if (threads.empty())
            break;
        for (std::thread& thread : threads)
            thread.join();
    }
    if (state_->firstFailure)
        std::rethrow_exception(state_->firstFailure);
}

} // namespace tarnwell
