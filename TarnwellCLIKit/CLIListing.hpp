#pragma once

// What a listing of a scanned tree shows: rows that point into the tree. A listing may have millions of rows
// and be nested 10,000 folders deep, so a row holds no text and the rows stand in one flat list.

#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// One row. Valid as long as the tree it was taken from. Sizes in bytes.
struct CLIListedNode {
    /// Never null.
    const FileNode* node = nullptr;
    /// The fraction of the parent's size in the chosen mode; 0 for a parent without a size.
    double share = 0;
    /// The node's size in the chosen mode.
    std::int64_t selected = 0;
    /// The level of the listing: 0 for the children of the root.
    std::int64_t depth = 0;

    std::string_view name() const { return node->name(); }
    /// Built at each call; the renderers build the paths of a whole listing on the way.
    std::string path() const { return node->path(); }
    bool isDirectory() const { return node->isDirectory(); }
    std::int64_t size() const { return node->size; }
    std::int64_t allocatedSize() const { return node->allocatedSize; }
    std::int64_t reclaimableSize() const { return node->reclaimableSize; }

    /// Compares what the rows show, also of different trees.
    bool operator==(const CLIListedNode& other) const;
};

/// A whole listing. Valid as long as the tree it was taken from. Sizes in bytes.
struct CLIListedScan {
    /// The root's path.
    std::string path;
    SizeMode mode = SizeMode::allocated;
    std::int64_t totalSize = 0;
    std::int64_t totalAllocatedSize = 0;
    std::int64_t totalReclaimableSize = 0;
    /// The root's size in `mode`.
    std::int64_t selectedTotal = 0;
    /// Depth first: a row stands right before its children, which have the next higher `depth`.
    std::vector<CLIListedNode> children;

    bool operator==(const CLIListedScan&) const = default;
};

} // namespace tarnwell
