#include "TarnwellCore/Platform/ItemMoving.hpp"

#include "TarnwellCore/Platform/FileModes.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

namespace tarnwell {

std::expected<ItemIdentity, int> itemIdentity(int folder, const char* name) {
    struct statx status = {};
    if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE | STATX_INO | STATX_BTIME,
                &status) != 0)
        return std::unexpected(errno);
    ItemIdentity identity{.device = makedev(status.stx_dev_major, status.stx_dev_minor),
                          .inode = status.stx_ino,
                          .type = vnodeTypeFromMode(status.stx_mode)};
    if ((status.stx_mask & STATX_BTIME) != 0)
        identity.birth = status.stx_btime.tv_sec * 1'000'000'000 + status.stx_btime.tv_nsec;
    return identity;
}

int ItemMovingDetail::renameWithoutReplacing(int fromFolder, const char* fromName, int toFolder,
                                             const char* toName) {
    return ::renameat2(fromFolder, fromName, toFolder, toName, RENAME_NOREPLACE);
}

} // namespace tarnwell
