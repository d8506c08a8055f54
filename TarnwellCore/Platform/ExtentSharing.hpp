#pragma once

// Making a file share the blocks of another one with the same contents: space is freed, nothing is deleted.
//
// Linux: FIDEDUPERANGE, in which the kernel compares the bytes while nobody can write them (btrfs, XFS with
// reflink, and others). macOS: a clone takes the file's place, see CloneReplacement.hpp.

#include "TarnwellCore/Platform/MeasuredFile.hpp"

#include <cstdint>
#include <expected>
#include <functional>
#include <string>

namespace tarnwell {

/// A file that was measured, open at `file` for reading, at that name in the open folder. Descriptors and
/// name stay the caller's.
struct SharingFile {
    int file = -1;
    int folder = -1;
    const char* name = nullptr;
    FileVersion version;
};

struct SharingFault {
    enum class Kind : std::uint8_t {
        unsupported,     ///< the file system cannot share blocks
        otherFileSystem, ///< the two lie on different ones
        different,       ///< their contents are not the same, or one is not what was measured any more
        immutable,       ///< it must not be changed
        openForWriting,  ///< somebody may be about to change it
        hasOtherLinks,   ///< they would be left behind; only where the file is replaced
        cancelled,
        failed, ///< with `error`, an errno
    };
    Kind kind;
    int error = 0;
    /// Bytes that were freed nevertheless: what was shared before it came to that.
    std::int64_t bytesFreed = 0;

    bool operator==(const SharingFault&) const = default;
};

/// Makes `further` share all blocks of `first`. The bytes that this freed on the file system, or why not all
/// are shared. At any moment `further` is whole, with its own name, owner, permissions, times and attributes.
/// `isCancelled` is asked every few megabytes.
std::expected<std::int64_t, SharingFault> shareExtents(const SharingFile& first, const SharingFile& further,
                                                       const std::function<bool()>& isCancelled);

} // namespace tarnwell
