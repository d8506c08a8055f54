#pragma once

// Nodes in the byte order of their paths. The paths of a deep chain are as long, together, as the square of
// its depth, so none is made: time and memory grow with the nodes, the folders above them, and their names.
//
// Safe from any thread.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace tarnwell {

/// For each node, how many different paths of these nodes come before its own. Nodes of several trees may
/// have one path, and then have one rank.
std::vector<std::size_t> pathRanks(std::span<const FileNode* const> nodes);

/// Puts nodes in that order. Those with one path stay as they stand.
void sortByPath(std::span<const FileNode*> nodes);

/// The length of `node.path()` in bytes.
std::size_t pathLength(const FileNode& node);

/// Bounds what a list of paths takes where it must hold them: to 100,000 paths and 64 MiB of memory, many
/// times what ordinary lists need.
class PathBudget {
public:
    /// Whether there is room for one more path, this node's. Once there is not, there is none for any other.
    bool take(const FileNode& node);

private:
    std::size_t paths_ = 0;
    std::size_t bytes_ = 0;
    bool isSpent_ = false;
};

} // namespace tarnwell
