#pragma once

// What a scan reports while it runs and when it is done.

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanOptions.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// Totals of a scan. Sizes in bytes.
struct ScanStats {
    std::int64_t totalSize = 0;
    std::int64_t totalAllocatedSize = 0;
    std::int64_t totalReclaimableSize = 0;
    /// Every entry that is not a folder and could be read, links, devices and further hard links included.
    std::int64_t fileCount = 0;
    /// The folders below the root.
    std::int64_t directoryCount = 0;
    std::int64_t symlinkCount = 0;
    std::int64_t packageCount = 0;
    /// Further links to a file that was already counted, and their apparent bytes.
    std::int64_t hardlinkDuplicateCount = 0;
    std::int64_t hardlinkSavedBytes = 0;
    /// Folders that could not be opened or read.
    std::int64_t inaccessibleCount = 0;
    /// Entries whose attributes could not be read.
    std::int64_t inaccessibleEntryCount = 0;
    std::int64_t mountPointCount = 0;
    /// The level of the deepest folder that was read; the root is level 0.
    std::int64_t maximumDepth = 0;

    bool operator==(const ScanStats&) const = default;
};

/// A look at a scan under way. `elapsed` in seconds.
struct ScanProgress {
    std::int64_t fileCount = 0;
    std::int64_t directoryCount = 0;
    std::int64_t bytesScanned = 0;
    std::int64_t allocatedBytesScanned = 0;
    std::int64_t reclaimableBytesScanned = 0;
    /// A folder that was being read.
    std::string currentPath;
    double elapsed = 0;
    bool isFinished = false;

    bool operator==(const ScanProgress&) const = default;
};

struct ScanResult {
    /// Owns the whole tree. Null for a scan that only measured.
    std::shared_ptr<FileNode> root;
    ScanStats stats;
    /// Full paths of the folders that could not be read, in byte order: all of them, or the first of more
    /// than 100,000, or than 32 MiB of text. How many they are says `stats.inaccessibleCount`, always.
    std::vector<std::string> inaccessiblePaths;
    /// Allocated bytes of the folders themselves, which no sum has, the root's among them; not of those on
    /// other devices than the root. Not known for a tree of which a part was scanned again.
    std::optional<std::int64_t> folderBytes;
    /// Seconds.
    double duration = 0;
    Date startedAt;
    ScanOptions options;
};

/// The statistics as a JSON object whose keys are the field names.
std::string jsonText(const ScanStats& stats);

} // namespace tarnwell
