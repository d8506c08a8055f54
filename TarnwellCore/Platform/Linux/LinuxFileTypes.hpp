#pragma once

// The kernel's numbers for devices in the terms of a directory entry.

#include <cstdint>

namespace tarnwell {

/// The kernel keeps 12 bits of the major and 20 bits of the minor number: together they fill 32 bits.
constexpr std::int32_t deviceIDFromNumbers(std::uint32_t major, std::uint32_t minor) {
    return static_cast<std::int32_t>((major << 20) | minor);
}

constexpr std::uint32_t majorFromDeviceID(std::int32_t deviceID) {
    return static_cast<std::uint32_t>(deviceID) >> 20;
}

} // namespace tarnwell
