#include "TarnwellCore/Platform/MeasuredFile.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace tarnwell {

namespace {

// Not blocking: a FIFO that took the file's place must not wait for a writer.
constexpr int commonFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

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
            .isDataless = (entry.finderFlags & datalessFileFlag) != 0,
            .linkCount = entry.linkCount,
            .allocatedSize = entry.allocatedSize,
            .version = {.device = entry.deviceID,
                        .inode = entry.fileID,
                        .size = entry.logicalSize,
                        .modified = nanoseconds(status.st_mtimespec),
                        .changed = nanoseconds(status.st_ctimespec)}};
}

} // namespace

// The system has no way to leave the time of access alone, nor to open what a look has shown.
std::expected<int, FileFault> MeasuredFileDetail::openForReading(int folder, const char* name,
                                                                 const FileVersion& version) {
    const auto found = measureFile(folder, name);
    if (!found)
        return std::unexpected(found.error());
    if (const auto isWanted = compared(*found, version); !isWanted)
        return std::unexpected(isWanted.error());
    const int file = withoutInterruption([&] { return ::openat(folder, name, commonFlags); });
    if (file < 0)
        return std::unexpected(FileFault::of(errno));
    return file;
}

std::expected<FileMeasurement, FileFault> measureFile(int folder, const char* name) {
    struct stat status = {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return std::unexpected(FileFault::of(errno));
    return measurementOf(status);
}

std::expected<FileMeasurement, FileFault> measureFile(int file) {
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return std::unexpected(FileFault::of(errno));
    return measurementOf(status);
}

} // namespace tarnwell
