#include "TarnwellCore/Platform/MeasuredFile.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace tarnwell {

namespace {

int openWithoutTrace(int folder, const char* name, int furtherFlags) {
    // Not blocking: a FIFO that took the file's place must not wait for a writer.
    const int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | furtherFlags;
    const int file = withoutInterruption([&] { return ::openat(folder, name, flags | O_NOATIME); });
    if (file >= 0 || errno != EPERM) // it is the owner's
        return file;
    return withoutInterruption([&] { return ::openat(folder, name, flags); });
}

std::int64_t nanoseconds(const struct timespec& time) {
    std::int64_t result = 0;
    // A time that no clock shows may be anywhere; wrapped around, it is still told from others.
    static_cast<void>(__builtin_mul_overflow(std::int64_t{time.tv_sec}, 1'000'000'000, &result));
    static_cast<void>(__builtin_add_overflow(result, std::int64_t{time.tv_nsec}, &result));
    return result;
}

FileMeasurement measurementOf(const struct stat& status) {
    const RawDirectoryEntry entry = entryFromStatus(status);
    return {.kind = entry.objectType,
            .linkCount = entry.linkCount,
            .allocatedSize = entry.allocatedSize,
            .version = {.device = entry.deviceID,
                        .inode = entry.fileID,
                        .size = entry.logicalSize,
                        .modified = nanoseconds(status.st_mtim),
                        .changed = nanoseconds(status.st_ctim)}};
}

} // namespace

std::expected<FileMeasurement, FileFault> measureFile(int folder, const char* name) {
    struct stat status = {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
        return std::unexpected(FileFault::of(errno));
    return measurementOf(status);
}

std::expected<FileMeasurement, FileFault> measureFile(int file) {
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return std::unexpected(FileFault::of(errno));
    return measurementOf(status);
}

// First a look at what is there, which opens nothing; then that is opened, by way of the descriptor of the
// look, and not what has the name by then.
std::expected<int, FileFault> MeasuredFileDetail::openForReading(int folder, const char* name,
                                                                 const FileVersion& version) {
    const int look =
        withoutInterruption([&] { return ::openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC); });
    if (look < 0)
        return std::unexpected(FileFault::of(errno));
    std::expected<int, FileFault> file = -1;
    const auto isWanted = requireVersion(look, version);
    if (!isWanted) {
        file = std::unexpected(isWanted.error());
    } else {
        std::array<char, 32> path{};
        std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", look);
        file = openWithoutTrace(AT_FDCWD, path.data(), 0);
        if (*file < 0 && errno == ENOENT) // no /proc here
            file = openWithoutTrace(folder, name, O_NOFOLLOW);
        if (*file < 0)
            file = std::unexpected(FileFault::of(errno));
    }
    ::close(look);
    return file;
}

} // namespace tarnwell
