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
    // The calling thread is one of the workers: it would only wait otherwise. Its place stays empty.
    std::vector<std::thread> threads{1}; // by number; guarded by mutex, as is all below
    std::vector<int> freeNumbers;
    std::exception_ptr firstFailure;

    void runBody(int number) {
        std::exception_ptr failure;
        try {
            body(number);
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard guard(mutex);
        if (!firstFailure)
            firstFailure = failure;
        if (number > 0)
            freeNumbers.push_back(number);
    }

    /// Where there are no more threads or no memory for them, those that run are enough. Under the lock.
    void startNew() {
        try {
            freeNumbers.reserve(threads.size()); // nothing fails when a body ends
            threads.emplace_back([this, number = static_cast<int>(threads.size())] { runBody(number); });
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        }
    }

    void startAgain(int number) {
        try {
            std::thread& thread = threads[static_cast<std::size_t>(number)];
            if (thread.joinable())
                thread.join(); // it is at its end
            thread = std::thread([this, number] { runBody(number); });
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
    for (int number = 1; number < count; ++number) {
        const std::lock_guard guard(state_->mutex);
        state_->startNew();
    }
    state_->runBody(0);
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
    if (state_->firstFailure)
        std::rethrow_exception(state_->firstFailure);
}

} // namespace tarnwell
