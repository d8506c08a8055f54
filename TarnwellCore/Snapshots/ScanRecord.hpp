#pragma once

// What the history keeps of one finished scan.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"
#include "TarnwellCore/Scanning/VolumeInfo.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tarnwell {

/// The room on a volume, in bytes.
struct VolumeSpace {
    std::int64_t capacity = 0;
    /// Free for this user.
    std::int64_t free = 0;

    bool operator==(const VolumeSpace&) const = default;
};

/// A plain value. Sizes in bytes.
struct ScanRecord {
    /// Allocated bytes by category; files only, a further hard link counts for nothing.
    using CategorySizes = std::map<FileCategory, std::int64_t>;

    /// The scanned folder's full path. Raw bytes.
    std::string rootPath;
    /// When the scan ended. Stored at whole seconds.
    Date finishedAt;
    /// Seconds.
    double duration = 0;
    std::int64_t totalSize = 0;
    std::int64_t totalAllocatedSize = 0;
    std::int64_t totalReclaimableSize = 0;
    std::int64_t fileCount = 0;
    std::int64_t directoryCount = 0;
    /// Folders that could not be read: where they differ, totals of two scans do not compare.
    std::int64_t unreadableFolderCount = 0;
    /// Of the volume that holds the root, when it was asked.
    std::optional<VolumeSpace> volume;
    /// Empty where nobody counted.
    CategorySizes categories;

    std::int64_t totalSizeFor(SizeMode mode) const;

    bool operator==(const ScanRecord&) const = default;

    /// What there is to keep of a scan that has just ended; `volume` holds its root, and is left out where
    /// its capacity is unknown. Walks the tree once. A scan that only measured has no path: it is not for the
    /// history.
    static ScanRecord of(const ScanResult& result, const std::optional<VolumeInfo>& volume,
                         Date finishedAt = currentDate());
};

} // namespace tarnwell
