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

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

namespace {

#define KINDS(KIND)                                                                                          \
    KIND(open)                                                                                               \
    KIND(openat2)                                                                                            \
    KIND(close)                                                                                              \
    KIND(read)                                                                                               \
    KIND(write)                                                                                              \
    KIND(sync)                                                                                               \
    KIND(seek)                                                                                               \
    KIND(truncate)                                                                                           \
    KIND(getdents)                                                                                           \
    KIND(opendir)                                                                                            \
    KIND(readdir)                                                                                            \
    KIND(stat)                                                                                               \
    KIND(statx)                                                                                              \
    KIND(statfs)                                                                                             \
    KIND(access)                                                                                             \
    KIND(readlink)                                                                                           \
    KIND(getcwd)                                                                                             \
    KIND(rename)                                                                                             \
    KIND(unlink)                                                                                             \
    KIND(mkdir)                                                                                              \
    KIND(link)                                                                                               \
    KIND(mode)                                                                                               \
    KIND(fcntl)                                                                                              \
    KIND(ioctl)                                                                                              \
    KIND(lock)                                                                                               \
    KIND(map)                                                                                                \
    KIND(random)                                                                                             \
    KIND(limits)                                                                                             \
    KIND(pipe)                                                                                               \
    KIND(poll)                                                                                               \
    KIND(spawn)                                                                                              \
    KIND(wait)                                                                                               \
    KIND(kill)                                                                                               \
    KIND(pidfd)                                                                                              \
    KIND(thread)                                                                                             \
    KIND(memory)

#define NAME_OF(kind) kind##Kind,
enum Kind { KINDS(NAME_OF) kindCount };
#undef NAME_OF
#define TEXT_OF(kind) #kind,
constexpr const char* kindNames[] = {KINDS(TEXT_OF)};
#undef TEXT_OF

std::atomic<long> calls[kindCount];
std::atomic<long> failures;
std::atomic<long> devices;
std::atomic<bool> isArmed;
int failingKind = -1;
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

/// Counts a call. Whether it is one to spoil.
bool isDue(Kind kind) {
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
bool fails(Kind kind) {
    if (!isDue(kind) || failingError == 0)
        return false;
    errno = failingError;
    return true;
}

template <class Result>
Result failed() {
    if constexpr (std::is_pointer_v<Result>)
        return nullptr;
    else
        return -1;
}

/// `descriptor` as it is; remembers what should not have been opened.
int noteOpened(int descriptor, const char* path, int flags) {
    struct stat status;
    if (descriptor < 0 || (flags & O_PATH) != 0 || !isArmed ||
        next<int (*)(int, struct stat*)>("fstat")(descriptor, &status) != 0)
        return descriptor;
    const bool isHarmless = std::strcmp(path, "/dev/null") == 0 || std::strcmp(path, "/dev/urandom") == 0 ||
                            std::strcmp(path, "/dev/random") == 0;
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
        for (int kind = 0; kind < kindCount; ++kind)
            if (std::strcmp(name, kindNames[kind]) == 0)
                failingKind = kind;
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
    for (int kind = 0; kind < kindCount; ++kind)
        add(kindNames[kind], calls[kind]);
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

// Each function gets the C library's name as its symbol but a name of its own here, since its declaration
// need not match the library's to the letter. Variable arguments are taken as fixed ones, which the calling
// conventions of Linux allow.
#define SYMBOL(name) __asm__(#name)
#define FAULTY(kind, Result, name, parameters, arguments)                                                    \
    extern "C" Result faulty_##name parameters SYMBOL(name);                                                 \
    extern "C" Result faulty_##name parameters {                                                             \
        static const auto real = next<Result(*) parameters>(#name);                                          \
        return fails(kind##Kind) ? failed<Result>() : real arguments;                                        \
    }
// Those that return the errno.
#define FAULTY_BY_CODE(kind, name, parameters, arguments)                                                    \
    extern "C" int faulty_##name parameters SYMBOL(name);                                                    \
    extern "C" int faulty_##name parameters {                                                                \
        static const auto real = next<int(*) parameters>(#name);                                             \
        return fails(kind##Kind) ? failingError : real arguments;                                            \
    }
#define FAULTY_OPEN(name, parameters, arguments)                                                             \
    extern "C" int faulty_##name parameters SYMBOL(name);                                                    \
    extern "C" int faulty_##name parameters {                                                                \
        static const auto real = next<int(*) parameters>(#name);                                             \
        return fails(openKind) ? -1 : noteOpened(real arguments, path, flags);                               \
    }

extern "C" int faulty___libc_start_main(int (*)(int, char**, char**), int, char**, void (*)(), void (*)(),
                                        void (*)(), void*) SYMBOL(__libc_start_main);
extern "C" int faulty___libc_start_main(int (*mainFunction)(int, char**, char**), int count, char** values,
                                        void (*start)(), void (*end)(), void (*linkerEnd)(), void* stack) {
    realMain = mainFunction;
    return next<decltype(&faulty___libc_start_main)>("__libc_start_main")(watchedMain, count, values, start,
                                                                          end, linkerEnd, stack);
}

extern "C" [[noreturn]] void faulty__exit(int) SYMBOL(_exit);
extern "C" [[noreturn]] void faulty__exit(int code) {
    report();
    // The leak sanitizer looks by itself only where a program ends by exit().
    const auto leaks = reinterpret_cast<int (*)()>(::dlsym(RTLD_DEFAULT, "__lsan_do_recoverable_leak_check"));
    if (leaks != nullptr && leaks() != 0)
        code = sanitizerCode;
    next<void (*)(int)>("_exit")(code);
    __builtin_unreachable();
}

FAULTY_OPEN(open, (const char* path, int flags, mode_t mode), (path, flags, mode))
FAULTY_OPEN(open64, (const char* path, int flags, mode_t mode), (path, flags, mode))
FAULTY_OPEN(openat, (int folder, const char* path, int flags, mode_t mode), (folder, path, flags, mode))
FAULTY_OPEN(openat64, (int folder, const char* path, int flags, mode_t mode), (folder, path, flags, mode))

extern "C" int faulty_close(int) SYMBOL(close);
extern "C" int faulty_close(int descriptor) {
    static const auto real = next<int (*)(int)>("close");
    const int result = real(descriptor); // also when it "fails": Linux gives the descriptor back
    return fails(closeKind) ? -1 : result;
}

extern "C" ssize_t faulty_read(int, void*, std::size_t) SYMBOL(read);
extern "C" ssize_t faulty_read(int descriptor, void* bytes, std::size_t count) {
    static const auto real = next<ssize_t (*)(int, void*, std::size_t)>("read");
    if (descriptor > STDERR_FILENO && isDue(readKind)) {
        if (failingError != 0) {
            errno = failingError;
            return -1;
        }
        count = std::min<std::size_t>(count, 1);
    }
    return real(descriptor, bytes, count);
}

extern "C" ssize_t faulty_write(int, const void*, std::size_t) SYMBOL(write);
extern "C" ssize_t faulty_write(int descriptor, const void* bytes, std::size_t count) {
    static const auto real = next<ssize_t (*)(int, const void*, std::size_t)>("write");
    if (descriptor > STDERR_FILENO && isDue(writeKind)) {
        if (failingError != 0) {
            errno = failingError;
            return -1;
        }
        count = std::min<std::size_t>(count, 1);
    }
    return real(descriptor, bytes, count);
}

extern "C" long faulty_syscall(long, long, long, long, long, long, long) SYMBOL(syscall);
extern "C" long faulty_syscall(long number, long a, long b, long c, long d, long e, long f) {
    static const auto real = next<long (*)(long, long, long, long, long, long, long)>("syscall");
    switch (number) {
    case SYS_getdents64:
        if (isDue(getdentsKind)) {
            if (failingError != 0) {
                errno = failingError;
                return -1;
            }
            c = std::min(c, 300L); // room for one entry with the longest name
        }
        break;
    case SYS_openat2:
        if (fails(openat2Kind))
            return -1;
        break;
    case SYS_pidfd_open:
        if (fails(pidfdKind))
            return -1;
        break;
    default:
        break;
    }
    return real(number, a, b, c, d, e, f);
}

FAULTY(sync, int, fsync, (int descriptor), (descriptor))
FAULTY(sync, int, fdatasync, (int descriptor), (descriptor))
FAULTY(seek, off_t, lseek, (int descriptor, off_t offset, int from), (descriptor, offset, from))
FAULTY(seek, off_t, lseek64, (int descriptor, off_t offset, int from), (descriptor, offset, from))
FAULTY(truncate, int, ftruncate, (int descriptor, off_t size), (descriptor, size))
FAULTY(truncate, int, ftruncate64, (int descriptor, off_t size), (descriptor, size))
FAULTY(truncate, int, fallocate, (int descriptor, int mode, off_t offset, off_t size),
       (descriptor, mode, offset, size))
FAULTY(truncate, int, fallocate64, (int descriptor, int mode, off_t offset, off_t size),
       (descriptor, mode, offset, size))
FAULTY(opendir, DIR*, opendir, (const char* path), (path))
FAULTY(opendir, DIR*, fdopendir, (int descriptor), (descriptor))
FAULTY(readdir, dirent*, readdir, (DIR * stream), (stream))
FAULTY(readdir, dirent64*, readdir64, (DIR * stream), (stream))
FAULTY(stat, int, stat, (const char* path, void* status), (path, status))
FAULTY(stat, int, stat64, (const char* path, void* status), (path, status))
FAULTY(stat, int, lstat, (const char* path, void* status), (path, status))
FAULTY(stat, int, lstat64, (const char* path, void* status), (path, status))
FAULTY(stat, int, fstat, (int descriptor, void* status), (descriptor, status))
FAULTY(stat, int, fstat64, (int descriptor, void* status), (descriptor, status))
FAULTY(stat, int, fstatat, (int folder, const char* path, void* status, int flags),
       (folder, path, status, flags))
FAULTY(stat, int, fstatat64, (int folder, const char* path, void* status, int flags),
       (folder, path, status, flags))
FAULTY(statx, int, statx, (int folder, const char* path, int flags, unsigned mask, void* status),
       (folder, path, flags, mask, status))
FAULTY(statfs, int, statfs, (const char* path, void* status), (path, status))
FAULTY(statfs, int, statfs64, (const char* path, void* status), (path, status))
FAULTY(statfs, int, fstatfs, (int descriptor, void* status), (descriptor, status))
FAULTY(statfs, int, fstatfs64, (int descriptor, void* status), (descriptor, status))
FAULTY(statfs, int, statvfs, (const char* path, void* status), (path, status))
FAULTY(statfs, int, statvfs64, (const char* path, void* status), (path, status))
FAULTY(statfs, int, fstatvfs, (int descriptor, void* status), (descriptor, status))
FAULTY(statfs, int, fstatvfs64, (int descriptor, void* status), (descriptor, status))
FAULTY(access, int, access, (const char* path, int mode), (path, mode))
FAULTY(readlink, ssize_t, readlink, (const char* path, char* target, std::size_t size), (path, target, size))
FAULTY(readlink, ssize_t, readlinkat, (int folder, const char* path, char* target, std::size_t size),
       (folder, path, target, size))
FAULTY(readlink, char*, realpath, (const char* path, char* resolved), (path, resolved))
FAULTY(getcwd, char*, getcwd, (char* path, std::size_t size), (path, size))
FAULTY(rename, int, rename, (const char* from, const char* to), (from, to))
FAULTY(rename, int, renameat, (int folder, const char* from, int toFolder, const char* to),
       (folder, from, toFolder, to))
FAULTY(unlink, int, unlink, (const char* path), (path))
FAULTY(unlink, int, unlinkat, (int folder, const char* path, int flags), (folder, path, flags))
FAULTY(unlink, int, rmdir, (const char* path), (path))
FAULTY(unlink, int, remove, (const char* path), (path))
FAULTY(mkdir, int, mkdir, (const char* path, mode_t mode), (path, mode))
FAULTY(mkdir, int, mkdirat, (int folder, const char* path, mode_t mode), (folder, path, mode))
FAULTY(link, int, link, (const char* from, const char* to), (from, to))
FAULTY(link, int, symlink, (const char* target, const char* path), (target, path))
FAULTY(mode, int, chmod, (const char* path, mode_t mode), (path, mode))
FAULTY(mode, int, fchmod, (int descriptor, mode_t mode), (descriptor, mode))
FAULTY(fcntl, int, fcntl, (int descriptor, int command, void* argument), (descriptor, command, argument))
FAULTY(fcntl, int, fcntl64, (int descriptor, int command, void* argument), (descriptor, command, argument))
FAULTY(ioctl, int, ioctl, (int descriptor, unsigned long request, void* argument),
       (descriptor, request, argument))
FAULTY(lock, int, flock, (int descriptor, int operation), (descriptor, operation))
FAULTY(random, ssize_t, getrandom, (void* bytes, std::size_t size, unsigned flags), (bytes, size, flags))
FAULTY(limits, int, getrlimit, (int resource, void* limit), (resource, limit))
FAULTY(limits, int, getrlimit64, (int resource, void* limit), (resource, limit))
FAULTY(limits, int, sched_getaffinity, (pid_t process, std::size_t size, void* set), (process, size, set))
FAULTY(pipe, int, pipe2, (int* ends, int flags), (ends, flags))
FAULTY(poll, int, poll, (pollfd * polled, nfds_t count, int timeout), (polled, count, timeout))
FAULTY(wait, pid_t, waitpid, (pid_t process, int* status, int options), (process, status, options))
FAULTY(kill, int, kill, (pid_t process, int signal), (process, signal))
FAULTY_BY_CODE(spawn, posix_spawn,
               (pid_t * process, const char* path, const void* actions, const void* attributes,
                char* const* arguments, char* const* environment),
               (process, path, actions, attributes, arguments, environment))
FAULTY_BY_CODE(thread, pthread_create,
               (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument),
               (thread, attributes, start, argument))

extern "C" void* faulty_mmap(void*, std::size_t, int, int, int, off_t) SYMBOL(mmap);
extern "C" void* faulty_mmap(void* address, std::size_t size, int protection, int flags, int descriptor,
                             off_t offset) {
    static const auto real = next<void* (*)(void*, std::size_t, int, int, int, off_t)>("mmap");
    return fails(mapKind) ? MAP_FAILED : real(address, size, protection, flags, descriptor, offset);
}

// The allocations of C++; those of C libraries that end the process without memory would only prove that.
#define FAULTY_NEW(label, symbol, parameters, arguments)                                                     \
    extern "C" void* faulty_##label parameters __asm__(symbol);                                              \
    extern "C" void* faulty_##label parameters {                                                             \
        static const auto real = next<void*(*)parameters>(symbol);                                           \
        if (fails(memoryKind))                                                                               \
            throw std::bad_alloc();                                                                          \
        return real arguments;                                                                               \
    }
FAULTY_NEW(new, "_Znwm", (std::size_t size), (size))
FAULTY_NEW(newArray, "_Znam", (std::size_t size), (size))
FAULTY_NEW(newAligned, "_ZnwmSt11align_val_t", (std::size_t size, std::align_val_t alignment),
           (size, alignment))
FAULTY_NEW(newArrayAligned, "_ZnamSt11align_val_t", (std::size_t size, std::align_val_t alignment),
           (size, alignment))
