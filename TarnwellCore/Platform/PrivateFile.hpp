#pragma once

// What earlier versions, or a mask, left open to others.

#include <sys/types.h>

#include <filesystem>

namespace tarnwell {

/// Takes from others what they may do with a file (S_IFREG) or folder (S_IFDIR) of this user's. Does nothing
/// to what is of another kind or owner, or a link, or a file with more names than these: whoever may write in
/// the folder could have put another name there of a file elsewhere. Never fails.
void makePrivate(const std::filesystem::path& path, mode_t kind, nlink_t names = 1);

} // namespace tarnwell
