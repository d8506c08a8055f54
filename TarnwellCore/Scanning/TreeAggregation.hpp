#pragma once

// Rolling sizes and counts up a tree, and putting children in order.
//
// Two steps, because they want different moments: a folder is settled while its files are still in the
// processor's caches (its sums are those of its own files, which stand sorted before the folders among its
// children), and the folders are rolled up when all of them are there (`rollUp`). A tree made by hand takes
// both at once with `aggregate`.
//
// Invariants after `rollUp`, for every folder that is not flagged collapsed:
//   - each size is the sum over its file children that are neither inaccessible nor hard-link duplicates,
//     plus the sums of its folder children; the folder's own entry does not count;
//   - fileCount counts every file below that is not inaccessible, duplicates included;
//   - directoryCount counts the folders below;
//   - children stand in the order of NodeSorter.
// A sum beyond 64 bits (counts: 32 bits) is a fatal error.

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <cstdint>

namespace tarnwell {

/// What the files directly in a folder add up to.
class FolderSums {
public:
    void add(const FileNode& file) {
        includesSharedCloneBlocks_ = includesSharedCloneBlocks_ || file.includesSharedCloneBlocks;
        if (file.flags.contains(FileNodeFlags::inaccessible))
            return;
        addChecked(fileCount_, 1);
        if (file.isHardlinkDuplicate())
            return;
        addChecked(size_, file.size);
        addChecked(allocatedSize_, file.allocatedSize);
        addChecked(reclaimableSize_, file.reclaimableSize);
    }

    /// Other files of the same folder.
    void operator+=(const FolderSums& others);

    /// Makes them the sums of the folder, which then is settled. Until it is rolled up, its count of folders
    /// is that of those among its children.
    void store(FileNode& folder, std::size_t subfolderCount) const;

private:
    std::int64_t size_ = 0;
    std::int64_t allocatedSize_ = 0;
    std::int64_t reclaimableSize_ = 0;
    std::int32_t fileCount_ = 0;
    bool includesSharedCloneBlocks_ = false;
};

/// Takes a node's bytes into or out of its settled parent's sums when its duplicate mark is changed before
/// `rollUp`.
void setHardlinkDuplicate(FileNode& file, bool isDuplicate);

/// Adds the folders of a settled tree up, from the leaves to `root`, and completes the order of children, on
/// so many threads; with 1 on the calling thread alone.
void rollUp(FileNode& root, int threads);

/// Settles a whole tree and rolls it up, the latter on so many threads.
void aggregate(FileNode& root, int threads = 1);

} // namespace tarnwell
