#include "TarnwellCore/Platform/ItemMoving.hpp"

#include "TarnwellCore/Platform/FileModes.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cerrno>

namespace tarnwell {

std::expected<ItemIdentity, int> itemIdentity(int folder, const char* name) {
    struct stat status = {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return std::unexpected(errno);
    ItemIdentity identity{.device = static_cast<std::uint32_t>(status.st_dev),
                          .inode = status.st_ino,
                          .type = vnodeTypeFromMode(status.st_mode)};
    // Where a file system keeps none, the system gives the time of the last change of status, or none.
    const timespec& birth = status.st_birthtimespec;
    const timespec& change = status.st_ctimespec;
    if (birth.tv_sec > 0 && (birth.tv_sec != change.tv_sec || birth.tv_nsec != change.tv_nsec))
        identity.birth = std::int64_t{birth.tv_sec} * 1'000'000'000 + birth.tv_nsec;
    return identity;
}

int ItemMovingDetail::renameWithoutReplacing(int fromFolder, const char* fromName, int toFolder,
                                             const char* toName) {
    return ::renameatx_np(fromFolder, fromName, toFolder, toName, RENAME_EXCL);
}

} // namespace tarnwell
