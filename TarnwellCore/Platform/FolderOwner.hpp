#pragma once

// Whose a new file is. Root may run with another user's home; what it makes there is of use to that user only
// when it is theirs, all the more since nobody else may open it.

#include <filesystem>

namespace tarnwell {

/// Gives what a process made, and has open, to the owner of the folder it lies in. Does nothing unless the
/// process is root and the folder is another user's; where a file system has no owners, that is so.
void giveToOwnerOf(const std::filesystem::path& folder, int descriptor);

} // namespace tarnwell
