#pragma once

// The kernel's numbers for kinds, devices and blocks in the terms of a directory entry.

#include "TarnwellCore/Platform/FatalError.hpp"
#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <sys/stat.h>

#include <cstdint>
#include <limits>

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

/// The kernel keeps 12 bits of the major and 20 bits of the minor number: together they fill 32 bits.
constexpr std::int32_t deviceIDFromNumbers(std::uint32_t major, std::uint32_t minor) {
    return static_cast<std::int32_t>((major << 20) | minor);
}

/// Blocks are counted in units of 512 bytes, whatever the file system's own block is.
constexpr std::int64_t bytesFromBlocks(std::uint64_t blocks) {
    if (blocks > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) / 512) [[unlikely]]
        fatalError("an allocated size does not fit 64 bits");
    return static_cast<std::int64_t>(blocks * 512);
}

} // namespace tarnwell
