#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include "TarnwellCore/Platform/WorkerBodies.hpp"

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
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

struct WorkerThreads::State : WorkerBodies {
    using WorkerBodies::WorkerBodies;

    // The calling thread is none of them. Guarded by the mutex, as the other.
    std::vector<std::thread> threads;
    std::vector<std::size_t> endedThreads; // those whose place in `threads` is free again

    /// False where there are no more threads, or no memory for them, and when `most` run. Under the lock.
    bool startOne(int most) {
        Place place = Place::regular;
        if (!takePlace(most, place))
            return false;
        try {
            if (endedThreads.empty()) {
                endedThreads.reserve(threads.size() + 1); // nothing may fail when a body ends
                threads.emplace_back();
                endedThreads.push_back(threads.size() - 1);
            }
            const std::size_t index = endedThreads.back();
            if (threads[index].joinable())
                threads[index].join(); // it is at its end
            threads[index] = std::thread(
                [this, place, index] { run(place, [this, index] { endedThreads.push_back(index); }); });
            endedThreads.pop_back();
            return true;
        } catch (const std::exception&) {
            --runningCount;
            return false;
        }
    }

    /// As `startOne`, from `run`.
    bool startAnother(int count) {
        try {
            if (beforeStart)
                beforeStart();
        } catch (const std::system_error&) {
            return false;
        }
        const std::lock_guard guard(mutex);
        return startOne(count);
    }
};

WorkerThreads::WorkerThreads(Body body, std::function<void()> beforeStart)
    : state_(new State(std::move(body), std::move(beforeStart))) {}
WorkerThreads::~WorkerThreads() = default;

bool WorkerThreads::mayBeNested() {
    return true;
}

void WorkerThreads::addOne(int most) {
    const std::lock_guard guard(state_->mutex);
    state_->startOne(most);
}

void WorkerThreads::run(int count) {
    // The calling thread takes a place: it would only wait otherwise.
    Place place = Place::regular;
    {
        const std::lock_guard guard(state_->mutex);
        state_->regularCount = std::max(count, 1);
        state_->takePlace(state_->regularCount, place);
    }
    for (int started = 1; started < count && state_->startAnother(count); ++started) {
    }
    state_->run(place, [] {});
    for (;;) { // those that are waited for may add others
        std::thread thread;
        {
            const std::lock_guard guard(state_->mutex);
            const auto found = std::ranges::find_if(state_->threads, &std::thread::joinable);
            if (found == state_->threads.end())
                break;
            thread = std::move(*found);
        }
        thread.join();
    }
    state_->rethrowFirstFailure();
}

} // namespace tarnwell
