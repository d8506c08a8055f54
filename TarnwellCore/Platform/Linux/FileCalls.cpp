#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

namespace tarnwell {

const FileCalls& FileCalls::live() {
    static const FileCalls calls{
        .open = [](const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); },
        .read = ::read,
        .write = ::write,
        .sync = ::fsync,
        .close = ::close,
        .rename = ::rename,
        .unlink = ::unlink,
    };
    return calls;
}

} // namespace tarnwell
