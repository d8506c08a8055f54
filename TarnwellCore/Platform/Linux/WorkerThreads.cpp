#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include "TarnwellCore/Platform/WorkerBodies.hpp"

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

struct WorkerThreads::State : WorkerBodies {
    using WorkerBodies::WorkerBodies;

    // By number; guarded by the mutex. The calling thread is number 0: it would only wait otherwise.
    std::vector<std::thread> threads{1};

    /// Where there are no more threads or no memory for them, those that run are enough. Under the lock.
    void startNew() {
        try {
            const auto number = static_cast<int>(threads.size());
            reserveNumbers(number + 1);
            threads.emplace_back([this, number] { run(number); });
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        }
    }

    void startAgain(int number) {
        try {
            std::thread& thread = threads[static_cast<std::size_t>(number)];
            if (thread.joinable())
                thread.join(); // it is at its end
            thread = std::thread([this, number] { run(number); });
            std::erase(freeNumbers, number);
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        }
    }
};

WorkerThreads::WorkerThreads(std::function<void(int)> body) : state_(new State(std::move(body))) {}
WorkerThreads::~WorkerThreads() = default;

void WorkerThreads::addOne(int most) {
    const std::lock_guard guard(state_->mutex);
    if (!state_->freeNumbers.empty())
        state_->startAgain(state_->freeNumbers.back());
    else if (std::ssize(state_->threads) < most)
        state_->startNew();
}

void WorkerThreads::run(int count) {
    state_->reserveNumbers(count);
    for (int number = 1; number < count; ++number) {
        const std::lock_guard guard(state_->mutex);
        state_->startNew();
    }
    state_->run(0);
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
