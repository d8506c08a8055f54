#pragma once

// Puts the children of a folder in order: larger size first, equal sizes by name in byte order. In a folder
// of a million files of one size, going to the nodes for every comparison would take longer than the scan, so
// what decides is kept side by side: the size and eight bytes of the name, and of those nodes that are equal
// in both the next eight bytes, and so on.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarnwell {

/// Keeps its memory from one folder to the next, but not that of an unusually large one. Confined to one
/// thread.
class NodeSorter {
public:
    /// Of more nodes than this the memory is given back.
    static constexpr std::size_t largestKept = 32768;

    /// The order itself, by apparent size.
    static bool precedes(const FileNode& a, const FileNode& b) {
        return a.size != b.size ? a.size > b.size : a.name() < b.name();
    }

    struct Item {
        /// The size that the node was added with.
        std::int64_t size;
        /// Eight bytes of the name as one number that orders as they do, the first ones to begin with.
        std::uint64_t nameBytes;
        FileNode* node;
    };
    /// With the first bytes of the name.
    static Item item(FileNode& node, std::int64_t size) { return {size, bytesAt(0, node), &node}; }

    /// Adds a node by its apparent size, or by another.
    void add(FileNode& node) { add(node, node.size); }
    void add(FileNode& node, std::int64_t size) { items_.push_back({size, 0, &node}); }
    std::size_t count() const { return items_.size(); }
    /// Makes room for so many.
    void reserve(std::size_t count) { items_.reserve(count); }

    /// The nodes that were added, in order; equal ones as they were added. Called once, when all are there;
    /// ends with `clear`.
    std::span<const Item> sorted();
    /// Puts them to the front of `places`, in order, and forgets them. Returns the rest of `places`, which
    /// must hold them all.
    std::span<FileNode*> takeInto(std::span<FileNode*> places);
    void clear();

private:
    /// Items that are equal so far.
    struct Run {
        std::size_t start;
        std::size_t end;
        std::size_t offset; // of the bytes of the names that were compared last
    };

    static std::uint64_t bytesAt(std::size_t offset, const FileNode& node);
    static void readNames(std::span<Item> items, std::size_t offset);
    void addRuns(std::size_t start, std::size_t end, std::size_t offset);
    void settle(const Run& run);
    void sortSoFar(std::span<Item> items);

    std::vector<Item> items_;
    std::vector<Item> scratch_;
    std::vector<Run> runs_;
};

} // namespace tarnwell
