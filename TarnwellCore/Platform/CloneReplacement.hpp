#pragma once

// Sharing blocks on a file system that can clone files but not share ranges of them: a clone of the first
// file takes the further one's place, with everything of the further one but its blocks.
//
//     1  compare the contents
//     2  clone the first under a temporary name beside the further one
//     3  give the clone the further one's metadata
//     4  see that neither has changed
//     5  exchange the two names
//     6  see that what now has the temporary name was not written in between; if it was, exchange them again
//     7  remove what has the temporary name
//
// Killed between 2 and 5, the clone is left over; between 5 and 7, the old file is. Its name is
// `temporaryNameStart` and a UUID. The next time that something in the folder is shared removes it, when it
// has been left for a day and nobody holds it; unless somebody who had the old file open has written to it
// since, which only that name leads to then.

#include "TarnwellCore/Platform/ExtentSharing.hpp"

#include <cstdint>
#include <expected>
#include <functional>
#include <string_view>

namespace tarnwell {

/// The calls behind it, so that a test can make each of them fail. -1 and errno on failure.
struct CloneCalls {
    /// Clones the open file under a new name in the folder.
    std::function<int(int file, int folder, const char* name)> clone;
    /// Makes mode, owner, times, access control lists, extended attributes and flags of the file of that name
    /// what they are of the open file. Both belong to the caller's user.
    std::function<int(int file, int folder, const char* name)> copyMetadata;
    /// Exchanges two names of a folder, at once.
    std::function<int(int folder, const char* one, const char* other)> exchange;
    std::function<int(int folder, const char* name)> remove;
};

inline constexpr std::string_view temporaryNameStart = ".tarnwell-sharing-";

/// Removes what killed processes have left in an open folder, where another file has the same contents by its
/// length and time of modification. `now` in seconds since 1970. Does its best.
void removeSharingLeftovers(int folder, std::int64_t now, const CloneCalls& calls) noexcept;

/// As `shareExtents`; `bytesToFree` is what it gives back in the end.
std::expected<std::int64_t, SharingFault> replaceByClone(const SharingFile& first, const SharingFile& further,
                                                         std::int64_t bytesToFree, const CloneCalls& calls,
                                                         const std::function<bool()>& isCancelled);

} // namespace tarnwell
