#pragma once

// The children of one huge folder, in the order of NodeSorter. Sorting a million at once takes 56 bytes a node
// beside the nodes, more than half of what the nodes take themselves, and one thread at its end; in runs that
// are sorted for themselves and merged at the end, it takes 8, and the merging is done in parts.

#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace tarnwell {

/// Confined to one thread, but for those that it starts itself. What throws std::bad_alloc changes nothing.
class NodeRuns {
public:
    NodeRuns() = default;
    /// Of nodes that are ordered by another size than the apparent one.
    explicit NodeRuns(SizeMode mode) : mode_(mode) {}

    /// Takes a run that is in order. Throws std::bad_alloc.
    void add(std::vector<FileNode*> run);
    /// Takes all of the other. Throws std::bad_alloc.
    void add(NodeRuns&& other);
    /// Takes nodes in any order, and sorts them on so many threads. Equal ones stay as they stand. Throws
    /// std::bad_alloc.
    void sort(std::span<FileNode* const> nodes, int threads);
    /// Of nodes.
    std::size_t count() const { return count_; }

    /// Gets the nodes from the place `first` on.
    using Taker = std::function<void(std::size_t first, std::span<const NodeSorter::Item> items)>;
    /// Hands all nodes on in pieces and forgets them. Where there are very many, `take` is called on so many
    /// threads, for one piece after another of the part that each has at hand. Looks into each node once.
    /// Throws std::bad_alloc.
    void take(const Taker& take, int threads);
    /// Puts them to the front of `places`, in order, and forgets them. Returns the rest of `places`, which
    /// must hold them all.
    std::span<FileNode*> takeInto(std::span<FileNode*> places, int threads = 1);

private:
    SizeMode mode_ = SizeMode::apparent;
    std::vector<std::vector<FileNode*>> runs_; // none is empty; of equal nodes, the first run's come first
    std::size_t count_ = 0;
};

} // namespace tarnwell
