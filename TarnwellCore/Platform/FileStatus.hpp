#pragma once

// What a struct stat says, in the terms of a directory entry.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

struct stat;

namespace tarnwell {

/// Everything but the name; nothing is known of private sizes. Allocated size is blocks * 512; where that or
/// the size does not fit, the entry has no bytes and the error EOVERFLOW.
RawDirectoryEntry entryFromStatus(const struct stat& status);

} // namespace tarnwell
