#pragma once

// Sizes of entries as file systems report them, which may be anything: those of a server in user space, of a
// network's, of a damaged disk.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cerrno>
#include <cstdint>
#include <limits>

namespace tarnwell {

/// Makes of an entry whose sizes fit no 64 bits one that could not be read, and has no bytes.
inline void rejectSizes(RawDirectoryEntry& entry) {
    entry.logicalSize = entry.allocatedSize = entry.privateSize = 0;
    entry.reportsPrivateSize = false;
    entry.errorCode = EOVERFLOW;
}

/// Gives an entry its size in bytes and in blocks, which are of 512 bytes whatever the file system's own are.
/// A negative number of the kernel's is a large one here.
inline void setSizes(RawDirectoryEntry& entry, std::uint64_t bytes, std::uint64_t blocks) {
    constexpr std::uint64_t blockSize = 512;
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
    if (bytes > largest || blocks > largest / blockSize) [[unlikely]] {
        rejectSizes(entry);
        return;
    }
    entry.logicalSize = static_cast<std::int64_t>(bytes);
    entry.allocatedSize = static_cast<std::int64_t>(blocks * blockSize);
}

} // namespace tarnwell
