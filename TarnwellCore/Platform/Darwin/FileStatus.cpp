#include "TarnwellCore/Platform/FileStatus.hpp"

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/EntrySizes.hpp"
#include "TarnwellCore/Platform/FileModes.hpp"

#include <sys/stat.h>
#include <sys/vnode.h>

namespace tarnwell {

static_assert(static_cast<int>(VnodeType::regular) == VREG &&
              static_cast<int>(VnodeType::directory) == VDIR &&
              static_cast<int>(VnodeType::blockDevice) == VBLK &&
              static_cast<int>(VnodeType::characterDevice) == VCHR &&
              static_cast<int>(VnodeType::symbolicLink) == VLNK &&
              static_cast<int>(VnodeType::socket) == VSOCK && static_cast<int>(VnodeType::fifo) == VFIFO &&
              static_cast<int>(VnodeType::bad) == VBAD);

RawDirectoryEntry entryFromStatus(const struct stat& status) {
    RawDirectoryEntry entry;
    entry.objectType = vnodeTypeFromMode(status.st_mode);
    entry.deviceID = status.st_dev;
    entry.fileID = status.st_ino;
    entry.linkCount = status.st_nlink;
    setSizes(entry, static_cast<std::uint64_t>(status.st_size), static_cast<std::uint64_t>(status.st_blocks));
    entry.modificationSeconds = static_cast<double>(status.st_mtimespec.tv_sec) - referenceDateOffset;
    entry.accessSeconds = static_cast<double>(status.st_atimespec.tv_sec) - referenceDateOffset;
    entry.finderFlags = status.st_flags & ~automountFileFlag;
    return entry;
}

FileTimes timesFromStatus(const struct stat& status) {
    return {.modifiedSeconds = status.st_mtimespec.tv_sec,
            .modifiedNanoseconds = status.st_mtimespec.tv_nsec,
            .changedSeconds = status.st_ctimespec.tv_sec,
            .changedNanoseconds = status.st_ctimespec.tv_nsec};
}

} // namespace tarnwell
