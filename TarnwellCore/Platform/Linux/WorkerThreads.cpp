#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include <sched.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <thread>
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

void runWorkers(int count, const std::function<void(int)>& body) {
    std::mutex mutex;
    std::exception_ptr firstFailure; // guarded by mutex
    const auto run = [&](int index) {
        try {
            body(index);
        } catch (...) {
            const std::lock_guard guard(mutex);
            if (!firstFailure)
                firstFailure = std::current_exception();
        }
    };
    // The calling thread is one of the workers: it would only wait otherwise.
    std::vector<std::thread> threads;
    try {
        threads.reserve(static_cast<std::size_t>(std::max(count, 1)));
        for (int index = 1; index < count; ++index)
            threads.emplace_back(run, index);
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // No more threads or no memory for them: those that run are enough.
    }
    run(0);
    for (std::thread& thread : threads)
        thread.join();
    if (firstFailure)
        std::rethrow_exception(firstFailure);
}

} // namespace tarnwell
