#include "TarnwellCore/Platform/FileStatus.hpp"

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/EntrySizes.hpp"
#include "TarnwellCore/Platform/FileModes.hpp"
#include "TarnwellCore/Platform/Linux/LinuxFileTypes.hpp"

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace tarnwell {

RawDirectoryEntry entryFromStatus(const struct stat& status) {
    RawDirectoryEntry entry;
    entry.objectType = vnodeTypeFromMode(status.st_mode);
    entry.deviceID = deviceIDFromNumbers(major(status.st_dev), minor(status.st_dev));
    entry.fileID = status.st_ino;
    entry.linkCount = static_cast<std::uint32_t>(status.st_nlink);
    setSizes(entry, static_cast<std::uint64_t>(status.st_size), static_cast<std::uint64_t>(status.st_blocks));
    entry.modificationSeconds = static_cast<double>(status.st_mtim.tv_sec) - referenceDateOffset;
    entry.accessSeconds = static_cast<double>(status.st_atim.tv_sec) - referenceDateOffset;
    return entry;
}

FileTimes timesFromStatus(const struct stat& status) {
    return {.modifiedSeconds = status.st_mtim.tv_sec,
            .modifiedNanoseconds = status.st_mtim.tv_nsec,
            .changedSeconds = status.st_ctim.tv_sec,
            .changedNanoseconds = status.st_ctim.tv_nsec};
}

} // namespace tarnwell
