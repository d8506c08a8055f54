#include "TarnwellTidyKit/Browser/Removals.hpp"

namespace tarnwell {

Removals::Sums Removals::lossOf(const FileNode& node) const {
    const auto found = losses_.find(&node);
    return found == losses_.end() ? Sums{} : found->second;
}

Removals::Sums Removals::restOf(const FileNode& node) const {
    const Sums loss = lossOf(node);
    return {.size = node.size - loss.size,
            .allocatedSize = node.allocatedSize - loss.allocatedSize,
            .reclaimableSize = node.reclaimableSize - loss.reclaimableSize,
            .fileCount = node.fileCount() - loss.fileCount,
            .directoryCount = node.directoryCount() - loss.directoryCount};
}

void Removals::change(const FileNode& node, int sign) {
    if (node.flags.contains(FileNodeFlags::inaccessible) && !node.isDirectory())
        return; // no sum holds it
    Sums moved = restOf(node);
    if (node.isHardlinkDuplicate()) // counted, but not its bytes
        moved = {.fileCount = 1};
    moved.directoryCount += node.isDirectory() ? 1 : 0;
    for (const FileNode* above = node.parent(); above != nullptr; above = above->parent()) {
        Sums& loss = losses_[above];
        loss.size += sign * moved.size;
        loss.allocatedSize += sign * moved.allocatedSize;
        loss.reclaimableSize += sign * moved.reclaimableSize;
        loss.fileCount += sign * moved.fileCount;
        loss.directoryCount += sign * moved.directoryCount;
        if (nodes_.contains(*above)) // its own folders have lost it as a whole
            break;
    }
}

void Removals::note(const FileNode& node) {
    if (nodes_.contains(node))
        return;
    change(node, 1);
    nodes_.insert(node);
    all_.insert(&node);
}

void Removals::restore(const FileNode& node) {
    if (!nodes_.contains(node))
        return;
    nodes_.erase(node);
    all_.erase(&node);
    change(node, -1);
}

} // namespace tarnwell
