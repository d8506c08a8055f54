#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

namespace tarnwell {

namespace {

/// fsync alone leaves the bytes in the drive's cache; file systems that cannot have it emptied say so.
int syncThroughDriveCache(int descriptor) {
    if (::fcntl(descriptor, F_FULLFSYNC) == 0)
        return 0;
    if (errno == ENOTSUP || errno == EINVAL || errno == ENOTTY || errno == ENODEV)
        return ::fsync(descriptor);
    return -1;
}

} // namespace

const FileCalls& FileCalls::live() {
    static const FileCalls calls{
        .open = [](const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); },
        .read = ::read,
        .write = ::write,
        .sync = syncThroughDriveCache,
        .close = ::close,
        .rename = ::rename,
        .unlink = ::unlink,
    };
    return calls;
}

} // namespace tarnwell
