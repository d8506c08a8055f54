#pragma once

// Turns for the writers of one file, in all processes of one user. The lock is on a file of its own that
// others cannot open, so that none of them can hold it.

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <chrono>
#include <filesystem>

namespace tarnwell {

/// Held for as long as this lives, and no longer than the process does. Confined to one thread; two of one
/// process exclude each other like those of two.
class FileLock {
public:
    /// Enough for any number of honest writers on a slow disk.
    static constexpr std::chrono::milliseconds patience{5000};

    /// The lock of this file is on ".<name>.lock" beside it, mode 0600, which is made when missing and stays.
    /// Waits for its turn for so long at most. Throws std::system_error with the path and the system's text:
    /// EBUSY when time ran out, EPERM for a lock file that is neither this user's nor the folder's owner's,
    /// or no regular file. Where the file system has no locks to give, it counts as held. A lock file that is
    /// another file's as well, by a hard link, keeps its owner and mode.
    explicit FileLock(const std::filesystem::path& file, const FileCalls& calls = FileCalls::live(),
                      std::chrono::milliseconds limit = patience);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    const FileCalls& calls_;
    int descriptor_ = -1;
};

} // namespace tarnwell
