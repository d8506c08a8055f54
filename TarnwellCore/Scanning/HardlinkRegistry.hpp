#pragma once

// Settles which of several links to one file carries its bytes.
//
// During the walk the first link that any worker meets counts, the others are marked as duplicates. After
// the walk the link with the smallest path becomes the owner, so that the tree never depends on which worker
// was faster. A link inside a folder that gets no nodes adds its bytes to that folder only then.

#include "TarnwellCore/Platform/UnfairLock.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/FolderHandle.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnwell {

class HardlinkRegistry {
public:
    /// One link to a file, seen by the walk.
    struct Sighting {
        /// The link's node; null inside a folder without nodes.
        FileNode* node = nullptr;
        /// For a link without a node: the folder that takes its bytes, its place and its sizes.
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
    bool record(const INodeKey& key, Sighting sighting);

    /// Gives each file its owner and lets go of all sightings. After the walk, before the roll-up.
    void assignOwners();

private:
    UnfairLock lock_;
    std::unordered_set<INodeKey> seenINodes_;                            // guarded by lock_
    std::unordered_map<INodeKey, std::vector<Sighting>> hardlinkGroups_; // guarded by lock_
};

} // namespace tarnwell
