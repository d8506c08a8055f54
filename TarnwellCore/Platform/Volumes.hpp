#pragma once

// What the platform knows of mounted volumes.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// One volume as the platform reports it; what it does not report is absent. Sizes in bytes.
struct VolumeProperties {
    /// The mount point's bytes, absolute, without a trailing "/" but for the root.
    std::string path;
    std::optional<std::string> name;
    std::optional<std::int64_t> totalCapacity;
    std::optional<std::int64_t> availableCapacity;
    std::optional<std::int64_t> availableForImportantUsage;
    std::optional<std::int64_t> availableForOpportunisticUsage;
    std::optional<bool> isInternal;
    std::optional<bool> isRemovable;
    std::optional<bool> isEjectable;
    std::optional<bool> isRootFileSystem;
    std::optional<bool> isReadOnly;
    std::optional<bool> isLocal;
    std::optional<bool> isBrowsable;
    std::optional<std::string> fileSystemType;
    std::optional<std::string> uuid;
};

/// The figures of one file system. Sizes in bytes; `available` is what this user may still fill.
struct FileSystemStatistics {
    std::int64_t total = 0;
    std::int64_t available = 0;
    /// The type's name, such as "apfs" or "ext4"; empty when it is not known.
    std::string type;
    bool isReadOnly = false;

    bool operator==(const FileSystemStatistics&) const = default;
};

// All of these are safe from any thread. Where a file system's server does not answer, they give up on its
// figures in about a second on Linux; on macOS they take the system's own time.

/// The mounted volumes in no particular order, each mount point once; those that the platform hides from
/// users only when asked for.
std::vector<VolumeProperties> mountedVolumeProperties(bool includeHidden);

/// The volume mounted at exactly this place (links are followed); nothing when none is.
std::optional<VolumeProperties> volumeProperties(const std::string& path);

/// The mount point of the volume that holds this existing item (links are followed).
std::optional<std::string> mountPointContaining(const std::string& path);

/// The figures of the file system that holds this existing item.
std::optional<FileSystemStatistics> fileSystemStatistics(const std::string& path);

/// How long a file system that may hang is given to answer. Callers poll; none should see them stand still.
inline constexpr auto volumeAnswerLimit = std::chrono::milliseconds(1000);

/// Whether calls on this path may wait for ever, for a server or for a process that serves files. Known from
/// the list of mounts; where one of them may hang, the path's links are followed in limited time.
bool mayNeverAnswer(const std::string& path);

/// Whether a whole file system is mounted at exactly this place (absolute, no links), with all its
/// subvolumes, and nothing else on any folder of it: no file of it lies elsewhere. False where that cannot be
/// told.
bool holdsWholeFileSystem(const std::string& path);

} // namespace tarnwell
