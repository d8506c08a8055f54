#pragma once

// Nodes with their weights, and the order in which a level's tiles are placed.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>
#include <span>

namespace tarnwell {

struct WeighedNode {
    const FileNode* node;
    /// Bytes.
    std::int64_t weight;
};

/// Whether `a` stands before `b`: more weight, or equal weight and the lesser name in byte order.
bool precedesByWeight(const WeighedNode& a, const WeighedNode& b);

/// Sorts stably by `precedesByWeight`. Names are read only where weights are equal.
void sortByWeight(std::span<WeighedNode> nodes);

} // namespace tarnwell
