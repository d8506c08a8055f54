#pragma once

// The files of one huge folder, in the order of NodeSorter. Sorting a million at once takes 56 bytes a file
// beside the nodes, more than half of what the nodes take themselves; in runs that are sorted as they come
// and merged at the end, it takes 8.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace tarnwell {

/// Confined to one thread. What throws std::bad_alloc changes nothing.
class NodeRuns {
public:
    /// Takes a run that is in order. Throws std::bad_alloc.
    void add(std::vector<FileNode*> run);
    /// Takes all of the other. Throws std::bad_alloc.
    void add(NodeRuns&& other);
    /// Of nodes.
    std::size_t count() const { return count_; }
    /// Puts them to the front of `places`, in order, and forgets them. Returns the rest of `places`, which
    /// must hold them all. Looks into each node once. Throws std::bad_alloc.
    std::span<FileNode*> takeInto(std::span<FileNode*> places);

private:
    std::vector<std::vector<FileNode*>> runs_; // none is empty
    std::size_t count_ = 0;
};

} // namespace tarnwell
