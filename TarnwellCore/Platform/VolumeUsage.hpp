#pragma once

// How much of a volume is used, and what it tells of the bytes that no file accounts for.

#include <cstdint>
#include <optional>
#include <string>

namespace tarnwell {

/// Sizes in bytes.
struct VolumeUsage {
    /// With what only the system may fill, and what the file system itself takes of its blocks.
    std::int64_t used = 0;
    /// What is held by snapshots alone; absent where it is not told, 0 where the file system has none.
    std::optional<std::int64_t> snapshots = {};
    /// What the system removes when room is wanted; absent where it is not told, 0 where it does not do so.
    std::optional<std::int64_t> purgeable = {};
    /// Whether all files of the file system lie below the volume's mount point, or below what is mounted
    /// there.
    bool isWhole = false;
};

/// Of the volume that holds this existing item; nothing where it gives no answer. Gives up in about a second
/// on Linux; on macOS it takes the system's own time. Safe from any thread.
std::optional<VolumeUsage> volumeUsage(const std::string& path);

/// Whether a folder that begins another part of a tree (absolute, no links) shows more of the file system at
/// `volumePath`: a subvolume, or the same volume mounted again. Nothing is opened or mounted for it.
bool isPartOfFileSystem(const std::string& path, const std::string& volumePath);

} // namespace tarnwell
