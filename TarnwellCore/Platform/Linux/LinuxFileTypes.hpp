#pragma once

// The kernel's numbers for devices and blocks in the terms of a directory entry.

#include "TarnwellCore/Platform/FatalError.hpp"

#include <cstdint>
#include <limits>

namespace tarnwell {

/// The kernel keeps 12 bits of the major and 20 bits of the minor number: together they fill 32 bits.
constexpr std::int32_t deviceIDFromNumbers(std::uint32_t major, std::uint32_t minor) {
    return static_cast<std::int32_t>((major << 20) | minor);
}

constexpr std::uint32_t majorFromDeviceID(std::int32_t deviceID) {
    return static_cast<std::uint32_t>(deviceID) >> 20;
}

/// Blocks are counted in units of 512 bytes, whatever the file system's own block is.
constexpr std::int64_t bytesFromBlocks(std::uint64_t blocks) {
    if (blocks > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) / 512) [[unlikely]]
        fatalError("an allocated size does not fit 64 bits");
    return static_cast<std::int64_t>(blocks * 512);
}

} // namespace tarnwell
