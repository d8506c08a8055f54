#pragma once

// Which scanned files could have their local copy removed, and what that would free.

#include "TarnwellCore/Actions/SyncedRoots.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tarnwell {

struct EvictableItem {
    std::string path;
    std::string name;
    /// Bytes.
    std::int64_t allocatedSize = 0;
    CloudProvider provider = CloudProvider::other;

    bool operator==(const EvictableItem&) const = default;
};

struct EvictionSummary {
    /// The allocated bytes that evicting all items would free.
    std::int64_t bytes = 0;
    std::int64_t itemCount = 0;
    /// Every evictable file, largest first, equal sizes by path in byte order.
    std::vector<EvictableItem> items;

    bool operator==(const EvictionSummary&) const = default;
};

/// Every function is safe from any thread. Folders that have nothing to do with any root are not entered, so
/// the cost is that of the synced folders, not of the whole scan. A sum beyond 64 bits is a fatal error.
namespace CloudEviction {

/// The item for a file with local contents of its own in a synced root; nothing for any other node.
std::optional<EvictableItem> evictableItem(const FileNode& node,
                                           std::span<const SyncedRoots::PreparedRoot> prepared);

/// The allocated bytes of the evictable files at and below a node.
std::int64_t evictableAllocatedBytes(const FileNode& of, std::span<const SyncedRoot> roots);

/// All that could be evicted in a scan; nothing in a scan that only measured.
EvictionSummary evictableSummary(const ScanResult& in, std::span<const SyncedRoot> roots);

} // namespace CloudEviction
} // namespace tarnwell
