#pragma once

// Puts the children of a folder in order: larger apparent size first, equal sizes by name in byte order.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tarnwell {

/// Keeps its memory from one folder to the next, but not that of an unusually large one. Confined to one
/// thread.
class NodeSorter {
public:
    /// The order itself.
    static bool precedes(const FileNode& a, const FileNode& b) {
        return a.size != b.size ? a.size > b.size : a.name() < b.name();
    }

    void sort(std::span<FileNode*> nodes);

private:
    /// What decides nearly every comparison, side by side: nodes lie apart in memory.
    struct Key {
        explicit Key(FileNode& keyed);
        bool operator<(const Key& other) const;

        std::int64_t size;
        std::uint64_t nameStart; // the first eight bytes as one number that orders as they do
        FileNode* node;
    };

    std::vector<Key> keys_;
};

} // namespace tarnwell
