#pragma once

// Which children count in a layout, and for how much.

#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Layout/SizeOrder.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tarnwell {

/// Appends the children that have bytes in the mode and are not removed, in their order, and returns the sum
/// of their weights; one beyond 64 bits is a fatal error.
std::int64_t weighChildren(std::span<const FileNode* const> children, SizeMode mode,
                           RemovedNodesQuery& removed, std::vector<WeighedNode>& weights);

} // namespace tarnwell
