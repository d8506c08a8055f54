#pragma once

// Rolling sizes and counts up a tree, and putting children in order.
//
// Two steps, because they want different moments: a folder's own files are added up and sorted while they
// are still in the processor's caches (`settleFiles`, right after the folder was read), and the folders are
// rolled up when all of them are there (`rollUp`). A tree made by hand takes both at once with `aggregate`.
//
// Invariants after `rollUp`, for every folder that is not flagged collapsed:
//   - each size is the sum over its file children that are neither inaccessible nor hard-link duplicates,
//     plus the sums of its folder children; the folder's own entry does not count;
//   - fileCount counts every file below that is not inaccessible, duplicates included;
//   - directoryCount counts the folders below;
//   - children stand in the order of NodeSorter.
// A sum beyond 64 bits (counts: 32 bits) is a fatal error.

#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <cstddef>

namespace tarnwell {

/// Sets the folder's sums to those of its file children, which are its first `fileCount` children, and sorts
/// these among themselves. Does nothing to a collapsed folder.
void settleFiles(FileNode& folder, std::size_t fileCount, NodeSorter& sorter);

/// Takes a node's bytes into or out of its settled parent's sums when its duplicate mark is changed after
/// `settleFiles` and before `rollUp`.
void setHardlinkDuplicate(FileNode& file, bool isDuplicate);

/// Adds the folders of a settled tree up, from the leaves to `root`, and completes the order of children.
void rollUp(FileNode& root);

/// Settles and rolls up a whole tree.
void aggregate(FileNode& root);

} // namespace tarnwell
