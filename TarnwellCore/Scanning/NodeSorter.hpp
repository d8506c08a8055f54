#pragma once

// Puts the children of a folder in order: larger apparent size first, equal sizes by name in byte order.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
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

    void add(FileNode& node) { keys_.emplace_back(node); }
    std::size_t count() const { return keys_.size(); }

    /// Puts the nodes that were added to the front of `places`, in order, and forgets them. Returns the rest
    /// of `places`, which must hold them all.
    std::span<FileNode*> takeInto(std::span<FileNode*> places);

private:
    /// What decides nearly every comparison, side by side: nodes lie apart in memory.
    struct Key {
        explicit Key(FileNode& keyed) : size(keyed.size), nameStart(startOf(keyed.name())), node(&keyed) {}
        bool operator<(const Key& other) const;

        std::int64_t size;
        std::uint64_t nameStart; // the first eight bytes as one number that orders as they do
        FileNode* node;
    };

    static std::uint64_t startOf(std::string_view name) {
        std::uint64_t start = 0;
        if (name.size() >= sizeof start) {
            std::memcpy(&start, name.data(), sizeof start);
            return std::endian::native == std::endian::little ? __builtin_bswap64(start) : start;
        }
        // Padded with zeros; where that makes two names alike, the whole names decide.
        for (std::size_t index = 0; index < sizeof start; ++index)
            start = start << 8 | (index < name.size() ? static_cast<unsigned char>(name[index]) : 0u);
        return start;
    }

    std::vector<Key> keys_;
};

} // namespace tarnwell
