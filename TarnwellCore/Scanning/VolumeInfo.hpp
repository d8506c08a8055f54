#pragma once

// One mounted volume at one moment.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace tarnwell {

/// A plain value; nobody changes it once it is read. Sizes in bytes.
struct VolumeInfo {
    /// The mount point, with a trailing "/".
    std::filesystem::path url;
    /// The mount point's bytes without a trailing "/", but for the root.
    std::string path;
    std::string name;
    std::int64_t totalCapacity = 0;
    /// Free for this user now.
    std::int64_t availableCapacity = 0;
    /// Free for what the user asks for: with what the system would purge for it.
    std::int64_t availableForImportantUsage = 0;
    /// Free for what could wait: without what the system wants to keep free.
    std::int64_t availableForOpportunisticUsage = 0;
    bool isInternal = false;
    bool isRemovable = false;
    bool isEjectable = false;
    bool isRootVolume = false;
    bool isReadOnly = false;
    bool isNetwork = false;
    /// Whether users see it as a place of their own.
    bool isBrowsable = true;
    /// "unknown" when the platform does not tell.
    std::string fileSystemType;
    std::optional<std::string> uuid;

    bool operator==(const VolumeInfo&) const = default;
};

} // namespace tarnwell
