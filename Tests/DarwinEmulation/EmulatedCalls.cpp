#include "Tests/DarwinEmulation/EmulatedCalls.hpp"

#include "Tests/DarwinEmulation/KernelState.hpp"
#include "Tests/DarwinEmulation/include/os/lock.h"
#include "Tests/DarwinEmulation/include/sys/mount.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using tarnwell::test::EmulatedEntry;
using tarnwell::test::ItemKey;
using tarnwell::test::KernelState;

// Of <fcntl.h> and <sys/resource.h> there.
constexpr int noLinkAnywhere = 0x20000000;
constexpr int searchOnly = 0x40000000;
constexpr int fullSync = 51;
constexpr int datalessPolicy = 3;
constexpr int threadScope = 1;
constexpr int policyOff = 1;

constexpr std::uint32_t datalessFlag = 0x40000000;

thread_local int threadsDatalessPolicy = 0;

EmulatedEntry touch(const ItemKey& key) {
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    const EmulatedEntry entry = state.entry(key);
    if (state.entries.contains(key))
        state.touched.insert(key);
    return entry;
}

void noteFlags(struct stat& status) {
    status.__glibc_reserved[0] = touch({status.st_dev, status.st_ino}).flags;
}

/// The path of a mount in the table, in which some characters are octal numbers.
std::string unescaped(const std::string& text) {
    std::string path;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\\' && index + 3 < text.size()) {
            path += static_cast<char>(std::stoi(text.substr(index + 1, 3), nullptr, 8));
            index += 3;
        } else {
            path += text[index];
        }
    }
    return path;
}

std::vector<std::string> mountPoints() {
    std::vector<std::string> paths;
    std::ifstream table("/proc/thread-self/mountinfo");
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string field;
        for (int index = 0; index < 5; ++index)
            fields >> field;
        paths.push_back(unescaped(field));
    }
    return paths;
}

std::uint32_t threadNumber() {
    thread_local const auto number = static_cast<std::uint32_t>(::syscall(SYS_gettid));
    return number;
}

} // namespace

int emulated_openat(int folder, const char* path, int flags) {
    struct stat status = {};
    if (::fstatat(folder, path, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0) {
        const EmulatedEntry entry = touch({status.st_dev, status.st_ino});
        if ((entry.flags & datalessFlag) != 0) {
            if (threadsDatalessPolicy == policyOff) {
                errno = EDEADLK;
                return -1;
            }
            KernelState& state = KernelState::current();
            const std::lock_guard guard(state.mutex);
            ++state.fetches;
        }
    }
    struct open_how how = {};
    how.flags = static_cast<std::uint64_t>(flags & ~(noLinkAnywhere | searchOnly));
    if ((flags & searchOnly) != 0)
        how.flags |= O_PATH;
    if ((flags & noLinkAnywhere) != 0)
        how.resolve = RESOLVE_NO_SYMLINKS;
    if (how.resolve == 0)
        return ::openat(folder, path, static_cast<int>(how.flags));
    return static_cast<int>(::syscall(SYS_openat2, folder, path, &how, sizeof how));
}

int emulated_fcntl(int descriptor, int command) {
    if (command != fullSync) {
        errno = EINVAL;
        return -1;
    }
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    errno = state.behaviour.fullSyncError;
    return errno != 0 ? -1 : ::fsync(descriptor);
}

int emulated_fstat(int descriptor, struct stat* status) {
    const int result = ::fstat(descriptor, status);
    if (result == 0)
        noteFlags(*status);
    return result;
}

int emulated_fstatat(int folder, const char* path, struct stat* status, int flags) {
    const int linuxFlags = (flags & AT_SYMLINK_NOFOLLOW) | AT_NO_AUTOMOUNT;
    const int result = ::fstatat(folder, path, status, linuxFlags);
    if (result == 0)
        noteFlags(*status);
    return result;
}

int getiopolicy_np(int type, int scope) {
    if (type == datalessPolicy && scope == threadScope)
        return threadsDatalessPolicy;
    errno = EINVAL;
    return -1;
}

int setiopolicy_np(int type, int scope, int policy) {
    if (type == datalessPolicy && scope == threadScope && policy >= 0 && policy <= 2) {
        threadsDatalessPolicy = policy;
        return 0;
    }
    errno = EINVAL;
    return -1;
}

int getfsstat(EmulatedFileSystemStatus* buffer, int size, int flags) {
    if (flags != MNT_NOWAIT) // would wait for servers
        std::abort();
    std::vector<std::string> paths = mountPoints();
    {
        KernelState& state = KernelState::current();
        const std::lock_guard guard(state.mutex);
        if (!state.behaviour.tellsMounts)
            paths = {"/"};
    }
    if (buffer == nullptr)
        return static_cast<int>(paths.size());
    const std::size_t room = static_cast<std::size_t>(size) / sizeof *buffer;
    const std::size_t count = std::min(room, paths.size());
    for (std::size_t index = 0; index < count; ++index) {
        buffer[index] = {};
        paths[index].copy(buffer[index].f_mntonname, sizeof buffer[index].f_mntonname - 1);
    }
    return static_cast<int>(count);
}

void os_unfair_lock_lock(os_unfair_lock* lock) {
    const std::atomic_ref owner(lock->owner);
    for (;;) {
        std::uint32_t expected = 0;
        if (owner.compare_exchange_weak(expected, threadNumber(), std::memory_order_acquire,
                                        std::memory_order_relaxed))
            return;
        if (expected == threadNumber())
            std::abort();
        ::sched_yield();
    }
}

void os_unfair_lock_unlock(os_unfair_lock* lock) {
    const std::atomic_ref owner(lock->owner);
    if (owner.load(std::memory_order_relaxed) != threadNumber())
        std::abort();
    owner.store(0, std::memory_order_release);
}
