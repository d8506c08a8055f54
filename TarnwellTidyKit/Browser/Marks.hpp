#pragma once

// The items of a finished scan that are marked for an act. A marked folder stands for all it holds: what is
// marked below it is swallowed.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace tarnwell {

/// Nodes of one tree. A value. Takes less than a byte for each node of the tree's parts where there are
/// marks; marking costs the node's depth, and for a folder the marks below it when there are any.
class Marks {
public:
    bool isEmpty() const { return count_ == 0; }
    std::size_t count() const { return count_; }
    /// Whether this very node is marked.
    bool contains(const FileNode& node) const;
    /// Whether it is, or a folder above it.
    bool covers(const FileNode& node) const;

    /// False when it, or a folder above it, was marked already.
    bool add(const FileNode& node);
    /// Those of one folder, which is not marked itself, at the cost of one.
    void addChildren(const FileNode& folder, const std::vector<const FileNode*>& children);
    /// Of any folders; best those of one folder behind one another.
    void addAll(const std::vector<const FileNode*>& nodes);
    bool remove(const FileNode& node);
    void clear();
    /// In no order.
    std::vector<const FileNode*> nodes() const;

    /// Whether the same is marked; may be false for some time after marks came and went.
    friend bool operator==(const Marks& a, const Marks& b) {
        return a.count_ == b.count_ && a.pages_ == b.pages_;
    }

private:
    /// A part of the memory where nodes lie: of every 64 bytes, no more than a node takes at least, at which
    /// of the eight places in them one begins that is marked, from 1 on; 0 when none does.
    static constexpr std::uintptr_t pageLength = 65'536;
    static constexpr std::uintptr_t granule = 64;
    using Page = std::array<std::uint64_t, pageLength / granule * 4 / 64>;

    bool insert(const FileNode* node);

    std::unordered_map<std::uintptr_t, Page> pages_; // by address
    std::size_t count_ = 0;
    /// How many marked ones lie somewhere below a folder.
    std::unordered_map<const FileNode*, std::size_t> below_;
};

/// Marks of one tree, and the same items in another.
struct CarriedMarks {
    Marks before;
    Marks now;
};

} // namespace tarnwell
