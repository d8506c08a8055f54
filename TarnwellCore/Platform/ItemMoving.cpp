#include "TarnwellCore/Platform/ItemMoving.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tarnwell {

namespace {

int errorAfter(int result) {
    return result == -1 ? errno : 0;
}

/// A folder has no second link, so looking comes first; anything else is linked, which never replaces.
int moveByOlderCalls(int fromFolder, const char* fromName, int toFolder, const char* toName) {
    struct stat item = {};
    if (::fstatat(fromFolder, fromName, &item, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    if (!S_ISDIR(item.st_mode)) {
        const int error = errorAfter(::linkat(fromFolder, fromName, toFolder, toName, 0));
        if (error == 0)
            return errorAfter(::unlinkat(fromFolder, fromName, 0));
        const bool hasNoLinks = error == EPERM || error == ENOTSUP || error == EOPNOTSUPP || error == EMLINK;
        if (!hasNoLinks)
            return error;
    }
    struct stat there = {};
    if (::fstatat(toFolder, toName, &there, AT_SYMLINK_NOFOLLOW) == 0)
        return EEXIST;
    if (errno != ENOENT)
        return errno;
    return errorAfter(::renameat(fromFolder, fromName, toFolder, toName));
}

} // namespace

bool ItemIdentity::mayBe(const ItemIdentity& other) const {
    return inode == other.inode && type == other.type &&
           (birth && other.birth ? birth == other.birth : device == other.device);
}

int moveExclusively(int fromFolder, const char* fromName, int toFolder, const char* toName) {
    const int error = errorAfter(withoutInterruption(
        [&] { return ItemMovingDetail::renameWithoutReplacing(fromFolder, fromName, toFolder, toName); }));
    const bool isUnknown = error == EINVAL || error == ENOSYS || error == ENOTSUP || error == EOPNOTSUPP;
    return isUnknown ? moveByOlderCalls(fromFolder, fromName, toFolder, toName) : error;
}

} // namespace tarnwell
