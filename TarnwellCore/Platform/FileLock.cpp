#include "TarnwellCore/Platform/FileLock.hpp"

#include "TarnwellCore/Platform/FolderOwner.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <thread>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

// Functions that return a plain `int` give 0 or the number of the system's error.

/// Whether an open file may serve as a lock in this folder. Whoever owns the folder could replace it anyway.
bool isTrusted(const struct stat& status, const fs::path& folder) {
    struct stat around = {};
    const uid_t user = ::geteuid();
    return S_ISREG(status.st_mode) &&
           (user == 0 || status.st_uid == user ||
            (::stat(folder.empty() ? "." : folder.c_str(), &around) == 0 && status.st_uid == around.st_uid));
}

int prepare(int descriptor, const fs::path& folder) {
    struct stat status = {};
    if (::fstat(descriptor, &status) == -1)
        return errno;
    if (!isTrusted(status, folder))
        return EPERM;
    // Whoever may write here could have put a second name of a file elsewhere in the lock's place.
    if (status.st_nlink > 1)
        return 0;
    if (status.st_uid == 0)
        giveToOwnerOf(folder, descriptor);
    // Where a file system has no modes, or the file is another's, the limit on waiting has to do.
    if ((status.st_mode & 077) != 0) [[maybe_unused]]
        const int result = ::fchmod(descriptor, 0600);
    return 0;
}

int lock(int descriptor, std::chrono::milliseconds patience) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + patience;
    for (std::chrono::milliseconds pause(1);; pause = std::min(2 * pause, std::chrono::milliseconds(50))) {
        if (withoutInterruption([&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); }) == 0)
            return 0;
        if (errno == ENOLCK || errno == ENOTSUP || errno == ENOSYS || errno == EINVAL)
            return 0;
        if (errno != EWOULDBLOCK)
            return errno;
        if (Clock::now() >= end)
            return EBUSY;
        std::this_thread::sleep_for(pause);
    }
}

} // namespace

FileLock::FileLock(const fs::path& file, const FileCalls& calls, std::chrono::milliseconds limit)
    : calls_(calls) {
    const fs::path folder = file.parent_path();
    const fs::path path = folder / ("." + file.filename().string() + ".lock");
    constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    descriptor_ = withoutInterruption([&] { return calls.open(path.c_str(), flags, 0600); });
    int error = descriptor_ == -1 ? errno : prepare(descriptor_, folder);
    if (error == 0)
        error = lock(descriptor_, limit);
    if (error == 0)
        return;
    if (descriptor_ != -1)
        calls.close(descriptor_);
    throw std::system_error(error, std::generic_category(), "Could not lock " + path.string());
}

FileLock::~FileLock() {
    calls_.close(descriptor_);
}

} // namespace tarnwell
