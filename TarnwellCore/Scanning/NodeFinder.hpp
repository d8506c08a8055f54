#pragma once

// Finds many nodes of one tree by their paths.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnwell {

/// Answers as `FileNode::node` does. That one looks at a folder's entries one after another; this one learns
/// the names of a large folder when it is asked about it again, so that a path costs no more than its length.
/// The tree outlives it and does not change. Confined to one thread.
class NodeFinder {
public:
    explicit NodeFinder(const FileNode& root) : root_(root), rootPath_(root.path()) {}

    /// `path` is full, or relative to the root. Null when there is none.
    const FileNode* find(std::string_view path);
    /// What lies at the path of a node of another tree; a node of this tree is its own answer.
    /// Costs a few steps for each folder on the way that has kept its size.
    const FileNode* like(const FileNode& node);

private:
    using Names = std::unordered_map<std::string_view, const FileNode*>;

    const FileNode* child(const FileNode& folder, std::string_view name);
    const FileNode* childLike(const FileNode& folder, const FileNode& other);

    const FileNode& root_;
    std::string rootPath_;
    const FileNode* sameRoot_ = nullptr; // of another tree, with this root's path
    std::vector<const FileNode*> way_;   // kept for its memory
    std::unordered_set<const FileNode*> asked_;
    std::unordered_map<const FileNode*, Names> names_;
};

} // namespace tarnwell
