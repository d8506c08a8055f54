#pragma once

// Where file systems are mounted, for systems on which the listing of a folder does not always tell.

#include <set>
#include <string>

namespace tarnwell {

/// Absolute paths of mount points, and of folders on which others get mounted by and by. Nothing on Linux,
/// where listings name the device. Waits for no server and mounts nothing.
std::set<std::string, std::less<>> mountPointsBesideListings();

} // namespace tarnwell
