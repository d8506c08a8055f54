#pragma once

// What a struct stat says, in the terms of a directory entry.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

struct stat;

namespace tarnwell {

/// Everything but the name; nothing is known of private sizes. Allocated size is blocks * 512.
RawDirectoryEntry entryFromStatus(const struct stat& status);

} // namespace tarnwell
