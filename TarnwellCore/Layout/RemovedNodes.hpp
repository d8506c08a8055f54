#pragma once

// The nodes that the user has deleted since the scan: the tree still holds them, viewers leave them out.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <unordered_map>
#include <unordered_set>

namespace tarnwell {

/// A set of node identities. It does not keep their tree alive and is empty of meaning once the tree is
/// gone. Reading is safe from any number of threads.
class RemovedNodes {
public:
    void insert(const FileNode& node) { nodes_.insert(&node); }
    /// Takes a node out again, for a deletion that was undone.
    void erase(const FileNode& node) { nodes_.erase(&node); }
    void clear() { nodes_.clear(); }

    bool isEmpty() const { return nodes_.empty(); }
    std::size_t count() const { return nodes_.size(); }
    /// Whether this very node was inserted.
    bool contains(const FileNode& node) const { return nodes_.contains(&node); }
    /// Whether the node or any of its ancestors was inserted. Costs the node's depth; to ask about many
    /// nodes, use a `RemovedNodesQuery`.
    bool containsNodeOrAncestor(const FileNode& node) const;

private:
    std::unordered_set<const FileNode*> nodes_;
};

/// Asks about many nodes of trees that do not change meanwhile, each ancestor being looked at once.
class RemovedNodesQuery {
public:
    /// The set must outlive the query and not change.
    explicit RemovedNodesQuery(const RemovedNodes& removed) : removed_(removed) {}

    bool containsNodeOrAncestor(const FileNode& node) {
        if (removed_.isEmpty())
            return false;
        return removed_.contains(node) || isBelowRemoved(node.parent());
    }

private:
    bool isBelowRemoved(const FileNode* parent);

    const RemovedNodes& removed_;
    // Siblings come one after another: their common parent is answered without a look-up.
    const FileNode* lastParent_ = nullptr;
    bool lastAnswer_ = false;
    std::unordered_map<const FileNode*, bool> answers_;
};

} // namespace tarnwell
