// lock-counters: a library to preload into a program. At the program's end it prints, for every mutex that
// was taken at least a thousand times, how often it was taken, how often somebody else had it, how long it
// was held and how long threads waited for it; and how often and how long threads waited on condition
// variables, and how much of that while names waited: some that getdents64 had given, and that no statx had
// been called for. Reading the clock twice around every lock costs some 50 ns, which counts as holding time.

#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

/// Who waits on condition variables, and for how many names nobody has asked.
class Idleness {
public:
    void change(long threads, long names) {
        while (isBusy_.test_and_set(std::memory_order_acquire)) {
        }
        const std::uint64_t time = now();
        if (names_ > 0)
            withNames_ += (time - last_) * static_cast<std::uint64_t>(threads_);
        last_ = time;
        threads_ += threads;
        names_ += names;
        isBusy_.clear(std::memory_order_release);
    }
    /// Added up over the threads that waited.
    std::uint64_t nanosecondsWithNames() const { return withNames_; }

private:
    std::atomic_flag isBusy_;
    std::uint64_t last_ = 0; // guarded by isBusy_, as is all below
    std::uint64_t withNames_ = 0;
    long threads_ = 0;
    long names_ = 0;
} idleness;

thread_local long namesOfThisThread = 0; // that it has not asked about

void noteNames(long names) {
    idleness.change(0, names - namesOfThisThread);
    namesOfThisThread = names;
}

/// Without "." and "..", which nobody asks about.
long countNames(const char* records, long length) {
    long names = 0;
    for (long offset = 0; offset < length;) {
        const char* const record = records + offset;
        unsigned short recordLength = 0;
        std::memcpy(&recordLength, record + offsetof(dirent64, d_reclen), sizeof recordLength);
        const char* const name = record + offsetof(dirent64, d_name);
        names += std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
        offset += recordLength;
    }
    return names;
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
        std::fprintf(
            stderr, "condition variables: %llu waits, %.1f ms, of which %.1f ms while names waited\n",
            static_cast<unsigned long long>(conditionWaits), static_cast<double>(conditionNanoseconds) * 1e-6,
            static_cast<double>(idleness.nanosecondsWithNames()) * 1e-6);
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
    idleness.change(1, 0);
    const int result = wait(condition, mutex);
    idleness.change(-1, 0);
    conditionWaits.fetch_add(1, std::memory_order_relaxed);
    conditionNanoseconds.fetch_add(now() - start, std::memory_order_relaxed);
    noteTaken(counters);
    return result;
}

extern "C" long syscall(long number, ...) noexcept {
    // A local static would wait for other threads by this very call.
    static std::atomic<long (*)(long, ...)> known;
    auto* call = known.load(std::memory_order_relaxed);
    if (call == nullptr)
        known.store(call = real<long(long, ...)>("syscall"), std::memory_order_relaxed);
    std::array<long, 6> values;
    va_list arguments;
    va_start(arguments, number);
    for (long& value : values)
        value = va_arg(arguments, long);
    va_end(arguments);
    const long result = call(number, values[0], values[1], values[2], values[3], values[4], values[5]);
    if (number == SYS_getdents64)
        noteNames(countNames(reinterpret_cast<const char*>(values[1]), result));
    return result;
}

extern "C" int statx(int folder, const char* name, int flags, unsigned mask, struct statx* facts) noexcept {
    static auto* const call = real<int(int, const char*, int, unsigned, struct statx*)>("statx");
    if (namesOfThisThread > 0)
        noteNames(namesOfThisThread - 1);
    return call(folder, name, flags, mask, facts);
}
