#pragma once

// As much of the Darwin kernel's header as its side of the platform uses. Linux has another `statfs`.

#include <cstdint>

struct EmulatedFileSystemStatus {
    char f_fstypename[16];
    char f_mntonname[1024];
};

#define statfs EmulatedFileSystemStatus
#define MNT_NOWAIT 2

/// `size` in bytes; without a buffer, how many there are.
extern "C" int getfsstat(EmulatedFileSystemStatus* buffer, int size, int flags);
