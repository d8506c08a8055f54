#pragma once

// One tile of a treemap.

#include "TarnwellCore/Layout/Geometry.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>

namespace tarnwell {

/// The nodes belong to the tree that was laid out; an item is valid as long as that tree is.
struct TreemapItem {
    /// The item's index in its layout.
    std::int64_t id = 0;
    /// What the tile shows; null for a remainder tile.
    const FileNode* node = nullptr;
    /// The node whose children this tile is among; null when the caller named none.
    const FileNode* parent = nullptr;
    /// The tile without its padding. Null for one too thin to be halved, in the range of the smallest
    /// doubles.
    Rect rect;
    /// 0 for the first level.
    std::int64_t depth = 0;
    /// Bytes in the size mode of the layout; for a remainder tile, the sum over the merged children.
    std::int64_t value = 0;
    /// The children merged into a remainder tile; 0 for any other tile.
    std::int64_t aggregatedCount = 0;

    bool isAggregate() const { return node == nullptr; }

    /// Nodes are compared by identity.
    bool operator==(const TreemapItem&) const = default;
};

} // namespace tarnwell
