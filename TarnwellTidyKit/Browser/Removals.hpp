#pragma once

// What has gone from a scanned tree since the scan, and how much its folders hold less for that: the tree
// itself stays as it is.

#include "TarnwellCore/Analysis/Search.hpp"
#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnwell {

/// The nearest node that is, or lies above, both; null stands for nothing.
const FileNode* commonFolder(const FileNode* one, const FileNode* other);

/// Of one tree. A value; reading is safe from any number of threads.
class Removals {
public:
    /// Bytes and items.
    struct Sums {
        std::int64_t size = 0;
        std::int64_t allocatedSize = 0;
        std::int64_t reclaimableSize = 0;
        std::int64_t fileCount = 0;
        std::int64_t directoryCount = 0;
    };

    /// What was deleted for good has left the disk; what lies in a Trash takes its space and its links along.
    void note(const FileNode& node, bool isForGood = false);
    /// The node is back, with what had gone before from inside of it still missing.
    void restore(const FileNode& node);

    /// This very node; not: a folder above it.
    bool isGone(const FileNode& node) const { return nodes_.contains(node); }
    bool isGoneWithItsFolders(const FileNode& node) const { return nodes_.containsNodeOrAncestor(node); }
    bool isEmpty() const { return nodes_.isEmpty(); }
    const RemovedNodes& nodes() const { return nodes_; }
    const std::unordered_set<const FileNode*>& all() const { return all_; }
    const std::unordered_set<const FileNode*>& forGood() const { return forGood_; }
    /// What is left of these: a folder that has lost something by those of its parts that have not.
    std::vector<const FileNode*> remaining(const std::vector<const FileNode*>& nodes) const;
    /// What found items come to that are still there, without what is undecided.
    SearchTotals totalsOf(const std::vector<const FileNode*>& found) const;
    /// The nearest folder that held all that went; null when nothing did.
    const FileNode* place() const;
    /// What a node has lost from inside.
    Sums lossOf(const FileNode& node) const;
    /// What a node still has.
    Sums restOf(const FileNode& node) const;

private:
    void change(const FileNode& node, int sign);

    RemovedNodes nodes_;
    std::unordered_set<const FileNode*> all_;          // as `nodes_`, which cannot be gone through
    std::unordered_set<const FileNode*> forGood_;      // of those
    std::unordered_map<const FileNode*, Sums> losses_; // of folders above what went
};

} // namespace tarnwell
