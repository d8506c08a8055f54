#pragma once

// What is remembered of a scan: its totals and a flat list of its larger items, small enough to keep for
// years and to compare with another in a moment.

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/UUID.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tarnwell {

/// A plain value. Sizes in bytes.
struct ScanSnapshot {
    /// One kept item.
    struct Entry {
        /// Relative to the root; empty for the root itself. Raw bytes.
        std::string path;
        std::int64_t size = 0;
        std::int64_t allocatedSize = 0;
        std::int64_t reclaimableSize = 0;
        /// The files below a folder; 1 for a file.
        std::int64_t fileCount = 0;
        bool isDirectory = false;

        std::int64_t sizeFor(SizeMode mode) const;

        bool operator==(const Entry&) const = default;
    };

    UUID id;
    /// Stored at whole seconds.
    Date createdAt;
    std::string rootPath;
    std::int64_t totalSize = 0;
    std::int64_t totalAllocatedSize = 0;
    std::int64_t totalReclaimableSize = 0;
    std::int64_t totalFiles = 0;
    /// In the order of capture: a folder before its children, those in the tree's order.
    std::vector<Entry> entries;
    /// The apparent size from which an item was kept; 0 when everything was.
    std::int64_t minimumSize = 0;
    /// Whether a schedule took it, which may remove it; otherwise a person saved it.
    bool isScheduled = false;

    std::int64_t totalSizeFor(SizeMode mode) const;

    bool operator==(const ScanSnapshot&) const = default;

    /// What every snapshot is captured with that is stored: only those of equal depth and fineness can be
    /// compared. Levels and apparent bytes.
    static constexpr std::int64_t storedDepth = 4;
    static constexpr std::int64_t storedMinimumSize = 1'000'000;

    /// Remembers a scan, with a new identity and the present time: its root, and whatever has at least
    /// `minimumSize` apparent bytes down to `maxDepth` levels below the root. A small folder's large child
    /// (a further hard link counts for nothing in the folder's sum) is kept without the folder. A result that
    /// only measured has totals, but neither a path nor entries.
    static ScanSnapshot capture(const ScanResult& result, std::int64_t maxDepth, std::int64_t minimumSize);
};

} // namespace tarnwell

template <>
struct std::hash<tarnwell::ScanSnapshot::Entry> {
    std::size_t operator()(const tarnwell::ScanSnapshot::Entry& entry) const noexcept;
};
