#pragma once

// What a struct stat says, in the terms of a directory entry.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstdint>

struct stat;

namespace tarnwell {

/// Everything but the name; nothing is known of private sizes. Allocated size is blocks * 512; where that or
/// the size does not fit, the entry has no bytes and the error EOVERFLOW.
RawDirectoryEntry entryFromStatus(const struct stat& status);

/// When a file was last written to, and when anything of it last changed, which nobody can set back; since
/// 1970.
struct FileTimes {
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;
    std::int64_t changedSeconds = 0;
    std::int64_t changedNanoseconds = 0;

    bool operator==(const FileTimes&) const = default;
};

FileTimes timesFromStatus(const struct stat& status);

} // namespace tarnwell
