#pragma once

// The kind of a file from the mode bits that every Unix shares.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <sys/stat.h>

#include <cstdint>

namespace tarnwell {

constexpr VnodeType vnodeTypeFromMode(std::uint32_t mode) {
    switch (mode & S_IFMT) {
    case S_IFREG:
        return VnodeType::regular;
    case S_IFDIR:
        return VnodeType::directory;
    case S_IFLNK:
        return VnodeType::symbolicLink;
    case S_IFBLK:
        return VnodeType::blockDevice;
    case S_IFCHR:
        return VnodeType::characterDevice;
    case S_IFSOCK:
        return VnodeType::socket;
    case S_IFIFO:
        return VnodeType::fifo;
    default:
        return VnodeType::bad;
    }
}

} // namespace tarnwell
