#pragma once

// The items of a finished scan that are marked for an act. A marked folder stands for all it holds: what is
// marked below it is swallowed.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <unordered_map>
#include <vector>

namespace tarnwell {

/// Nodes of one tree. A value. Takes 16 to 24 bytes a node; marking costs the node's depth, and for a folder
/// the marks below it when there are any.
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

private:
    bool insert(const FileNode* node);
    std::size_t placeOf(const FileNode* node) const;
    void grow();

    std::vector<const FileNode*> places_; // open addressing; null is free
    std::size_t count_ = 0;
    /// How many marked ones lie somewhere below a folder.
    std::unordered_map<const FileNode*, std::size_t> below_;
};

} // namespace tarnwell
