#pragma once

// The kernel calls behind directory reading, as a table, so that a test can make any of them fail.

#include <cstddef>
#include <cstdint>

struct stat;

namespace tarnwell {

/// Every member behaves like the system call it stands for: -1 and errno on failure.
struct DirectoryCalls {
    /// Fills the buffer with packed entries of the folder: getdents64, which returns bytes, on Linux;
    /// getattrlistbulk, which returns records, on Darwin. 0 at the end of the folder.
    long (*readPacked)(int folder, std::byte* buffer, std::size_t size);

    /// Linux only: statx of an entry below the folder, no link followed, no automount triggered. `status`
    /// is a struct statx.
    int (*extendedStatus)(int folder, const char* name, void* status);

    /// fstatat of an entry below the folder, no link followed, no automount triggered.
    int (*entryStatus)(int folder, const char* name, struct stat* status);

    /// openat, of what is no folder.
    int (*openEntry)(int folder, const char* name, int flags);

    /// Linux only: asks for the extents of an open file. `map` is a struct fiemap.
    int (*readExtents)(int file, void* map);

    /// Opens a folder below the folder for reading, no link followed: `openSubfolder`.
    int (*openFolder)(int folder, const char* name, const std::int32_t* device);

    /// The real ones.
    static const DirectoryCalls& live();
};

} // namespace tarnwell
