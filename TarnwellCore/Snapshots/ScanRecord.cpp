#include "TarnwellCore/Snapshots/ScanRecord.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <vector>

namespace tarnwell {

namespace {

/// Without recursion: a tree may be deeper than the stack.
ScanRecord::CategorySizes categorySizes(const FileNode& root) {
    ScanRecord::CategorySizes sizes;
    std::vector<const FileNode*> pending{&root};
    while (!pending.empty()) {
        const FileNode& node = *pending.back();
        pending.pop_back();
        // A folder whose sums were given has no files to count.
        const bool isLeaf = !node.isDirectory() || node.children().empty();
        if (!isLeaf)
            pending.insert(pending.end(), node.children().begin(), node.children().end());
        else if (node.allocatedSize > 0 && !node.isHardlinkDuplicate() &&
                 !node.flags.contains(FileNodeFlags::inaccessible))
            addChecked(sizes[node.category], node.allocatedSize);
    }
    return sizes;
}

} // namespace

std::int64_t ScanRecord::totalSizeFor(SizeMode mode) const {
    switch (mode) {
    case SizeMode::apparent:
        return totalSize;
    case SizeMode::allocated:
        return totalAllocatedSize;
    case SizeMode::reclaimable:
        return totalReclaimableSize;
    }
    return totalSize;
}

ScanRecord ScanRecord::of(const ScanResult& result, const std::optional<VolumeInfo>& volume,
                          Date finishedAt) {
    ScanRecord record;
    record.finishedAt = finishedAt;
    record.duration = result.duration;
    record.totalSize = result.stats.totalSize;
    record.totalAllocatedSize = result.stats.totalAllocatedSize;
    record.totalReclaimableSize = result.stats.totalReclaimableSize;
    record.fileCount = result.stats.fileCount;
    record.directoryCount = result.stats.directoryCount;
    record.unreadableFolderCount = result.stats.inaccessibleCount;
    if (volume && volume->totalCapacity > 0)
        record.volume = VolumeSpace{.capacity = volume->totalCapacity, .free = volume->availableCapacity};
    if (result.root) {
        record.rootPath = result.root->path();
        record.categories = categorySizes(*result.root);
    }
    return record;
}

} // namespace tarnwell
