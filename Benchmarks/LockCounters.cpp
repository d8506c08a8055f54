// lock-counters: a library to preload into a program. At the program's end it prints, for every mutex that
// was taken at least a thousand times, how often it was taken, how often somebody else had it, how long it
// was held and how long threads waited for it; and how often and how long threads waited on condition
// variables. Reading the clock twice around every lock costs some 50 ns, which counts as holding time.

#include <dlfcn.h>
#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

struct Counters {
    std::atomic<pthread_mutex_t*> mutex;
    std::atomic<std::uint64_t> taken, contended, heldNanoseconds, longestHeld, waitedNanoseconds;
    std::uint64_t takenAt; // guarded by the mutex itself
};

std::array<Counters, 4096> table;
std::atomic<std::uint64_t> conditionWaits, conditionNanoseconds;

std::uint64_t now() {
    timespec time;
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

/// The counters of a mutex; null when the table is full.
Counters* countersOf(pthread_mutex_t* mutex) {
    std::size_t slot = (reinterpret_cast<std::uintptr_t>(mutex) >> 3) * 0x9E37'79B9'7F4A'7C15 >> 52;
    for (std::size_t tries = 0; tries < table.size(); ++tries, slot = (slot + 1) % table.size()) {
        pthread_mutex_t* found = table[slot].mutex.load(std::memory_order_relaxed);
        if (found == nullptr && table[slot].mutex.compare_exchange_strong(found, mutex))
            return &table[slot];
        if (found == mutex)
            return &table[slot];
    }
    return nullptr;
}

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

void noteTaken(Counters* counters) {
    if (counters == nullptr)
        return;
    counters->taken.fetch_add(1, std::memory_order_relaxed);
    counters->takenAt = now();
}

void noteReleased(Counters* counters) {
    if (counters == nullptr)
        return;
    const std::uint64_t held = now() - counters->takenAt;
    counters->heldNanoseconds.fetch_add(held, std::memory_order_relaxed);
    if (held > counters->longestHeld.load(std::memory_order_relaxed))
        counters->longestHeld.store(held, std::memory_order_relaxed);
}

struct Report {
    ~Report() {
        std::array<Counters*, table.size()> used;
        std::size_t count = 0;
        for (Counters& counters : table)
            if (counters.taken >= 1000)
                used[count++] = &counters;
        std::sort(used.begin(), used.begin() + count, [](const Counters* a, const Counters* b) {
            return a->heldNanoseconds > b->heldNanoseconds;
        });
        for (std::size_t index = 0; index < count; ++index) {
            const Counters& each = *used[index];
            std::fprintf(
                stderr,
                "lock %zu: taken %llu, contended %llu, held %.1f ms, longest %.0f us, waited %.1f ms\n",
                index + 1, static_cast<unsigned long long>(each.taken),
                static_cast<unsigned long long>(each.contended),
                static_cast<double>(each.heldNanoseconds) * 1e-6,
                static_cast<double>(each.longestHeld) * 1e-3,
                static_cast<double>(each.waitedNanoseconds) * 1e-6);
        }
        std::fprintf(stderr, "condition variables: %llu waits, %.1f ms\n",
                     static_cast<unsigned long long>(conditionWaits),
                     static_cast<double>(conditionNanoseconds) * 1e-6);
    }
} report;

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static auto* const lock = real<int(pthread_mutex_t*)>("pthread_mutex_lock");
    static auto* const tryLock = real<int(pthread_mutex_t*)>("pthread_mutex_trylock");
    Counters* counters = countersOf(mutex);
    int result = tryLock(mutex);
    if (result != 0) {
        const std::uint64_t start = now();
        result = lock(mutex);
        if (counters != nullptr) {
            counters->contended.fetch_add(1, std::memory_order_relaxed);
            counters->waitedNanoseconds.fetch_add(now() - start, std::memory_order_relaxed);
        }
    }
    noteTaken(counters);
    return result;
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    static auto* const unlock = real<int(pthread_mutex_t*)>("pthread_mutex_unlock");
    noteReleased(countersOf(mutex));
    return unlock(mutex);
}

extern "C" int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    static auto* const wait = real<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    Counters* counters = countersOf(mutex);
    noteReleased(counters);
    const std::uint64_t start = now();
    const int result = wait(condition, mutex);
    conditionWaits.fetch_add(1, std::memory_order_relaxed);
    conditionNanoseconds.fetch_add(now() - start, std::memory_order_relaxed);
    noteTaken(counters);
    return result;
}
