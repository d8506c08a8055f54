#pragma once

// The tree of a scan of which one folder was read again: everything else is copied from the scan before, and
// comes out as if all had been scanned. Nodes have parents, so none can belong to two trees; copying one
// takes a small part of the time of reading it.
//
// What is outside of the folder may have changed with it all the same: a file that has links inside, or
// shares blocks with what is inside. Where the nodes say what became of such a file it is brought up to date;
// where they do not, the graft fails, and only scanning everything tells.

#include "TarnwellCore/Scanning/HardlinkRegistry.hpp"
#include "TarnwellCore/Scanning/NodeArena.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <map>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnwell {

class TreeGraft {
public:
    /// Begins the new tree with the folders from the root to the one that holds `folder`, which is not the
    /// root. `old` must outlive this.
    TreeGraft(const ScanResult& old, const FileNode& folder, TreeArena& arena, HardlinkRegistry& hardlinks);

    /// Whether the scan kept enough to tell what is outside from what is inside.
    static bool isPossible(const ScanResult& old, const FileNode& folder);

    FileNode& root() const { return *copies_.front(); }
    /// The new folder that takes what is found.
    FileNode& parent() const { return *copies_.back(); }

    /// Adds everything else to the new tree, which then is settled. `found` is what lies there now, settled
    /// with all that is below it and with `parent()` as its parent; null for nothing. False when what is
    /// outside has changed in ways that cannot be told from here: the new tree is not good for anything then.
    bool complete(FileNode* found);

    /// Afterwards, of all that was copied; without the sums of sizes, which are the root's once it is
    /// rolled up.
    const ScanStats& outsideStats() const { return stats_; }
    std::vector<std::string> outsideInaccessiblePaths() const;

private:
    /// One end of shared bytes, or of those of one file system before.
    struct Range {
        std::uint32_t fileSystem;
        std::uint64_t start;
        std::uint64_t end;
    };
    using Ranges = std::vector<Range>;

    /// What the nodes of one part of a tree keep.
    struct Kept {
        std::unordered_map<INodeKey, std::vector<const FileNode*>> links;
        Ranges extents; // as `unite` leaves them
        /// Of clones with one identifier: how many were found, and how many the file system knew of.
        std::map<std::pair<std::uint32_t, std::uint64_t>, std::pair<std::int64_t, std::uint32_t>> groups;
    };

    Kept keptBelow(const FileNode* top, const FileNode* except) const;
    static void unite(Ranges& ranges);
    static Ranges without(const Ranges& ranges, const Ranges& others);
    bool matchLinks(const Kept& before, const Kept& now, const Kept& outside);
    static bool matchBlocks(const Kept& before, const Kept& now, const Kept& outside);

    FileNode* copy(const FileNode& node, FileNode* parent);
    void count(const FileNode& node, std::int64_t depth);
    void copyOutside(FileNode* found);

    const ScanResult& old_;
    const FileNode& folder_;
    HardlinkRegistry& hardlinks_;
    const TreeArena::Lease region_;
    std::vector<const FileNode*> chain_; // root first, the folder's parent last
    std::vector<FileNode*> copies_;      // of those
    ScanStats stats_;
    /// Of files outside with links inside: a link that was read just now, or null when the inside has none
    /// any more; and how many there are now.
    std::unordered_map<INodeKey, std::pair<const FileNode*, std::uint32_t>> renewed_;
};

} // namespace tarnwell
