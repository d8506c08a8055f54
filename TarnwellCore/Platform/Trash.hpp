#pragma once

// The platform's Trash: moving one item there, and the folders in which such items lie afterwards.

#include <sys/types.h>

#include <cstdint>
#include <expected>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// Moves one item to the Trash of the volume it lies on, or of the home folder. A symbolic link is moved
/// itself, never what it points to. `item` is a path without a trailing "/". Returns where the item now
/// lies, when that is known, or the platform's text on why it was not moved. Safe from any thread.
std::expected<std::optional<std::filesystem::path>, std::string>
moveItemToTrash(const std::filesystem::path& item);

/// How an item can go away.
enum class WayOut : std::uint8_t {
    trash,    ///< its place has a Trash
    deletion, ///< its place has none, or it lies in one: it can only be deleted for good
    none,     ///< it cannot be taken out of its folder, is not there, or nobody can tell
};

/// Looks without changing anything, and may wait for a slow file system. `item` is a path as that of
/// `moveItemToTrash`; a symbolic link stands for itself. What holds for one item of a folder holds for the
/// others as far as there is a Trash. `deletion` only where that is certain. Never throws but for want of
/// memory; safe from any thread.
WayOut wayOutOf(const std::filesystem::path& item);

/// The folder that holds the trashed items of this home folder; it need not exist.
std::filesystem::path homeTrashDirectory(const std::filesystem::path& home);

/// The folders that may hold this user's trashed items on a volume other than the one of the home folder,
/// each with a trailing "/", by their names alone: nothing is looked at, none of them need exist.
std::vector<std::filesystem::path> volumeTrashDirectories(const std::filesystem::path& volume, uid_t user);

/// Whether one of those folders is there and really this user's. Others may write to the volume and put a
/// link or a folder of theirs in its place: on the way from the volume there must be no link, the user's own
/// folders must be the user's, and a shared one must be sticky.
bool isUsersTrash(const std::filesystem::path& folder, uid_t user);

} // namespace tarnwell
