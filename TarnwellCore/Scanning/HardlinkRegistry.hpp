#pragma once

// Settles which of several links to one file carries its bytes.
//
// During the walk the first link that any worker meets counts, the others are marked as duplicates. After
// the walk the link with the smallest path becomes the owner, so that the tree never depends on which worker
// was faster. Of all links to a file only these two are remembered: a million links take no more than two.

#include "TarnwellCore/Platform/UnfairLock.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/FolderHandle.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace tarnwell {

class HardlinkRegistry {
public:
    /// A link inside a folder that gets no nodes. The folder takes its bytes only if it becomes the owner.
    struct CollapsedLink {
        FileNode* collapseTarget = nullptr;
        FolderRef folder = {};
        std::string name = {};
        std::int64_t size = 0;
        std::int64_t allocatedSize = 0;
        std::int64_t reclaimableSize = 0;
    };

    /// Whether this is the first link to the file. For scans that keep no tree. Safe from any thread.
    bool isFirst(const INodeKey& key);

    /// The same, and remembers the link. Safe from any thread.
    bool record(const INodeKey& key, FileNode& link);
    bool record(const INodeKey& key, CollapsedLink link);

    /// Gives each file its owner and forgets all links. After the walk, before the roll-up.
    void assignOwners();

private:
    struct Group {
        FileNode* first = nullptr; // null when that link has no node
        FileNode* owner = nullptr; // the link with the smallest path; null when that one has no node
        std::unique_ptr<CollapsedLink> collapsedOwner;
    };

    /// The links are spread by file over several locks: a backup may consist of nothing else.
    struct Shard {
        UnfairLock lock;
        std::unordered_set<INodeKey> seenINodes;            // guarded by lock
        std::unordered_map<INodeKey, Group> hardlinkGroups; // guarded by lock
    };
    static constexpr std::size_t shardCount = 16;

    Shard& shard(const INodeKey& key) { return shards_[std::hash<INodeKey>()(key) / 64 % shardCount]; }

    std::array<Shard, shardCount> shards_;
};

} // namespace tarnwell
