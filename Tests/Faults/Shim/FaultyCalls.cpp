// A library to be preloaded into a program under test. It stands in front of the C library's calls, counts
// them from the start of main on, and makes chosen ones fail, as the environment says:
//
//   TARNWELL_FAULT_KIND    which kind of call, a name from the table below; none: only count
//   TARNWELL_FAULT_CALL    the number of the first call of that kind that fails; the first is 1
//   TARNWELL_FAULT_COUNT   how many fail from there on; 1 when not set, 0 for all
//   TARNWELL_FAULT_ERROR   the errno; 0: the call moves as few bytes as it may instead
//   TARNWELL_FAULT_REPORT  a descriptor on which the end of the program is reported, a line each:
//                          "<kind> <calls>", "failed <calls>", "descriptors <still open, less those at the
//                          start>", "devices <opened FIFOs, sockets and devices other than /dev/null and the
//                          random ones>"
//
// Programs that this one starts are left alone. Reading and writing the standard streams never fails.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <new>
#include <string_view>

namespace {

constexpr std::string_view kindNames[] = {
    "open",    "openat2", "close", "read",  "write",  "sync",   "seek",     "truncate", "getdents",
    "opendir", "readdir", "stat",  "statx", "statfs", "access", "readlink", "getcwd",   "rename",
    "unlink",  "mkdir",   "link",  "mode",  "fcntl",  "ioctl",  "lock",     "map",      "random",
    "limits",  "pipe",    "poll",  "spawn", "wait",   "kill",   "pidfd",    "thread",   "memory"};
constexpr std::size_t kindCount = std::size(kindNames);

/// `kindCount` for one that is not there.
constexpr std::size_t findKind(std::string_view name) {
    return static_cast<std::size_t>(std::ranges::find(kindNames, name) - kindNames);
}

consteval std::size_t kindNamed(std::string_view name) {
    return findKind(name) < kindCount ? findKind(name) : throw "no such kind";
}

std::atomic<long> calls[kindCount];
std::atomic<long> failures;
std::atomic<long> devices;
std::atomic<bool> isArmed;
std::size_t failingKind = kindCount;
long firstFailing = 0;
long failingCount = 1;
int failingError = 0;
int reportDescriptor = -1;
int descriptorsAtStart = 0;

/// With which a program ends that a sanitizer finds fault with.
constexpr int sanitizerCode = 66;

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

/// What a local static would be, which waits for other threads by `syscall`, one of the functions here.
template <class Function>
Function found(std::atomic<Function>& known, const char* name) {
    Function function = known.load(std::memory_order_relaxed);
    if (function == nullptr)
        known.store(function = next<Function>(name), std::memory_order_relaxed);
    return function;
}

/// Counts a call. Whether it is one to spoil.
bool isDue(std::size_t kind) {
    if (!isArmed.load(std::memory_order_relaxed))
        return false;
    const long number = ++calls[kind];
    if (kind != failingKind || number < firstFailing ||
        (failingCount != 0 && number >= firstFailing + failingCount))
        return false;
    ++failures;
    return true;
}

/// The same for a call that cannot be cut short.
bool fails(std::size_t kind) {
    if (!isDue(kind) || failingError == 0)
        return false;
    errno = failingError;
    return true;
}

/// The same for a call that moves bytes, which may be cut down to `least`. Whether it fails.
bool failsOrMovesFew(std::size_t kind, long& count, long least) {
    if (!isDue(kind))
        return false;
    if (failingError == 0)
        count = std::min(count, least);
    else
        errno = failingError;
    return failingError != 0;
}

/// `descriptor` as it is; remembers what should not have been opened.
long noteOpened(long descriptor, long path, long flags) {
    struct stat status;
    const int opened = static_cast<int>(descriptor);
    if (opened < 0 || (flags & O_PATH) != 0 || !isArmed ||
        next<int (*)(int, struct stat*)>("fstat")(opened, &status) != 0)
        return descriptor;
    const std::string_view name = reinterpret_cast<const char*>(path);
    const bool isHarmless = name == "/dev/null" || name == "/dev/urandom" || name == "/dev/random";
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode) && !isHarmless)
        ++devices;
    return descriptor;
}

int openDescriptors() {
    int count = 0;
    const auto control = next<int (*)(int, int, ...)>("fcntl");
    for (int descriptor = 0; descriptor < 4096; ++descriptor)
        count += control(descriptor, F_GETFD) != -1;
    return count;
}

long numberFrom(const char* name, long fallback) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::atol(text) : fallback;
}

__attribute__((constructor)) void readEnvironment() {
    if (const char* name = std::getenv("TARNWELL_FAULT_KIND"))
        failingKind = findKind(name);
    firstFailing = numberFrom("TARNWELL_FAULT_CALL", 1);
    failingCount = numberFrom("TARNWELL_FAULT_COUNT", 1);
    failingError = static_cast<int>(numberFrom("TARNWELL_FAULT_ERROR", EIO));
    reportDescriptor = static_cast<int>(numberFrom("TARNWELL_FAULT_REPORT", -1));
    for (const char* name : {"LD_PRELOAD", "TARNWELL_FAULT_KIND", "TARNWELL_FAULT_CALL",
                             "TARNWELL_FAULT_COUNT", "TARNWELL_FAULT_ERROR", "TARNWELL_FAULT_REPORT"})
        ::unsetenv(name);
}

void report() {
    if (!isArmed.exchange(false) || reportDescriptor < 0)
        return;
    char text[4096];
    std::size_t length = 0;
    const auto add = [&](const char* name, long count) {
        length += static_cast<std::size_t>(
            std::snprintf(text + length, sizeof text - length, "%s %ld\n", name, count));
    };
    for (std::size_t kind = 0; kind < kindCount; ++kind)
        add(kindNames[kind].data(), calls[kind]);
    add("failed", failures);
    add("descriptors", openDescriptors() - descriptorsAtStart);
    add("devices", devices);
    [[maybe_unused]] const ssize_t written =
        next<ssize_t (*)(int, const void*, std::size_t)>("write")(reportDescriptor, text, length);
}

int (*realMain)(int, char**, char**);

int watchedMain(int count, char** values, char** environment) {
    // Before the leak sanitizer looks: it opens pipes to a program that knows the names of functions.
    std::atexit(report);
    descriptorsAtStart = openDescriptors();
    isArmed = true;
    return realMain(count, values, environment);
}

} // namespace

using Call = long (*)(long, long, long, long, long, long);

// Each function gets the C library's name as its symbol but a name of its own here, since its declaration is
// not the library's: whatever the arguments are, they are handed on as so many machine words, and so is the
// result. The calling conventions of Linux allow that, for variable arguments, too.
#define CALL(name)                                                                                           \
    extern "C" long faulty_##name(long, long, long, long, long, long) __asm__(#name);                        \
    extern "C" long faulty_##name(long a, long b, long c, long d, long e, long f)
#define REAL(name)                                                                                           \
    static std::atomic<Call> known;                                                                          \
    const Call real = found(known, #name)
#define FAULTY_WITH(failure, kind, name)                                                                     \
    CALL(name) {                                                                                             \
        REAL(name);                                                                                          \
        return fails(kindNamed(#kind)) ? (failure) : real(a, b, c, d, e, f);                                 \
    }
#define FAULTY(kind, name) FAULTY_WITH(-1, kind, name)
// A call and its twin for large files.
#define FAULTY_TWINS(kind, name) FAULTY(kind, name) FAULTY(kind, name##64)

extern "C" int faulty___libc_start_main(int (*)(int, char**, char**), int, char**, void (*)(), void (*)(),
                                        void (*)(), void*) __asm__("__libc_start_main");
extern "C" int faulty___libc_start_main(int (*mainFunction)(int, char**, char**), int count, char** values,
                                        void (*start)(), void (*end)(), void (*linkerEnd)(), void* stack) {
    realMain = mainFunction;
    return next<decltype(&faulty___libc_start_main)>("__libc_start_main")(watchedMain, count, values, start,
                                                                          end, linkerEnd, stack);
}

extern "C" [[noreturn]] void faulty__exit(int) __asm__("_exit");
extern "C" [[noreturn]] void faulty__exit(int code) {
    report();
    // The leak sanitizer looks by itself only where a program ends by exit().
    const auto leaks = reinterpret_cast<int (*)()>(::dlsym(RTLD_DEFAULT, "__lsan_do_recoverable_leak_check"));
    if (leaks != nullptr && leaks() != 0)
        code = sanitizerCode;
    next<void (*)(int)>("_exit")(code);
    __builtin_unreachable();
}

#define FAULTY_OPEN(name, path, flags)                                                                       \
    CALL(name) {                                                                                             \
        REAL(name);                                                                                          \
        return fails(kindNamed("open")) ? -1 : noteOpened(real(a, b, c, d, e, f), path, flags);              \
    }
FAULTY_OPEN(open, a, b)
FAULTY_OPEN(open64, a, b)
FAULTY_OPEN(openat, b, c)
FAULTY_OPEN(openat64, b, c)

CALL(close) {
    REAL(close);
    const long result = real(a, b, c, d, e, f); // also when it "fails": Linux gives the descriptor back
    return fails(kindNamed("close")) ? -1 : result;
}

#define FAULTY_UNLESS_STANDARD(name)                                                                         \
    CALL(name) {                                                                                             \
        REAL(name);                                                                                          \
        const bool isStandard = static_cast<int>(a) <= STDERR_FILENO;                                        \
        return !isStandard && failsOrMovesFew(kindNamed(#name), c, 1) ? -1 : real(a, b, c, d, e, f);         \
    }
FAULTY_UNLESS_STANDARD(read)
FAULTY_UNLESS_STANDARD(write)

#define FAULTY_READING(name)                                                                                 \
    CALL(name) {                                                                                             \
        REAL(name);                                                                                          \
        return failsOrMovesFew(kindNamed("read"), c, 1) ? -1 : real(a, b, c, d, e, f);                       \
    }
FAULTY_READING(pread)
FAULTY_READING(pread64)

extern "C" long faulty_syscall(long, long, long, long, long, long, long) __asm__("syscall");
extern "C" long faulty_syscall(long number, long a, long b, long c, long d, long e, long f) {
    static std::atomic<long (*)(long, long, long, long, long, long, long)> known;
    const auto real = found(known, "syscall");
    constexpr long oneEntry = 300; // with the longest name
    const bool isFailing = number == SYS_getdents64 ? failsOrMovesFew(kindNamed("getdents"), c, oneEntry)
                           : number == SYS_openat2  ? fails(kindNamed("openat2"))
                                                    : number == SYS_pidfd_open && fails(kindNamed("pidfd"));
    return isFailing ? -1 : real(number, a, b, c, d, e, f);
}

FAULTY(sync, fsync)
FAULTY(sync, fdatasync)
FAULTY_TWINS(seek, lseek)
FAULTY_TWINS(truncate, ftruncate)
FAULTY_TWINS(truncate, fallocate)
FAULTY_WITH(0, opendir, opendir)
FAULTY_WITH(0, opendir, fdopendir)
FAULTY_WITH(0, readdir, readdir)
FAULTY_WITH(0, readdir, readdir64)
FAULTY_TWINS(stat, stat)
FAULTY_TWINS(stat, lstat)
FAULTY_TWINS(stat, fstat)
FAULTY_TWINS(stat, fstatat)
FAULTY(statx, statx)
FAULTY_TWINS(statfs, statfs)
FAULTY_TWINS(statfs, fstatfs)
FAULTY_TWINS(statfs, statvfs)
FAULTY_TWINS(statfs, fstatvfs)
FAULTY(access, access)
FAULTY(readlink, readlink)
FAULTY(readlink, readlinkat)
FAULTY_WITH(0, readlink, realpath)
FAULTY_WITH(0, getcwd, getcwd)
FAULTY(rename, rename)
FAULTY(rename, renameat)
FAULTY(rename, renameat2)
FAULTY(unlink, unlink)
FAULTY(unlink, unlinkat)
FAULTY(unlink, rmdir)
FAULTY(unlink, remove)
FAULTY(mkdir, mkdir)
FAULTY(mkdir, mkdirat)
FAULTY(link, link)
FAULTY(link, symlink)
FAULTY(mode, chmod)
FAULTY(mode, fchmod)
FAULTY(mode, futimens)
FAULTY(read, preadv2)
FAULTY(read, preadv64v2)
FAULTY_TWINS(fcntl, fcntl)
FAULTY(ioctl, ioctl)
FAULTY(lock, flock)
FAULTY(map, mmap)
FAULTY(random, getrandom)
FAULTY_TWINS(limits, getrlimit)
FAULTY(limits, sched_getaffinity)
FAULTY(pipe, pipe2)
FAULTY(poll, poll)
FAULTY(wait, waitpid)
FAULTY(kill, kill)
FAULTY_WITH(failingError, spawn, posix_spawn)
FAULTY_WITH(failingError, thread, pthread_create)

// The allocations of C++; those of C libraries that end the process without memory would only prove that.
#define FAULTY_NEW(label, symbol)                                                                            \
    extern "C" void* faulty_##label(std::size_t, std::size_t) __asm__(symbol);                               \
    extern "C" void* faulty_##label(std::size_t size, std::size_t alignment) {                               \
        static const auto real = next<void* (*)(std::size_t, std::size_t)>(symbol);                          \
        if (fails(kindNamed("memory")))                                                                      \
            throw std::bad_alloc();                                                                          \
        return real(size, alignment);                                                                        \
    }
FAULTY_NEW(new, "_Znwm")
FAULTY_NEW(newArray, "_Znam")
FAULTY_NEW(newAligned, "_ZnwmSt11align_val_t")
FAULTY_NEW(newArrayAligned, "_ZnamSt11align_val_t")
