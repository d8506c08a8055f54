#include "TarnwellTidyKit/Browser/BrowserEntries.hpp"

namespace tarnwell {

BrowserEntry TreeEntries::entryOf(const FileNode& node, const Removals& removals) {
    BrowserEntry entry{.name = node.name(),
                       .size = node.size,
                       .allocatedSize = node.allocatedSize,
                       .reclaimableSize = node.reclaimableSize,
                       .fileCount = node.fileCount(),
                       .directoryCount = node.directoryCount(),
                       .modificationSeconds = node.modificationSeconds,
                       .flags = node.flags,
                       .category = node.category,
                       .isDirectory = node.isDirectory(),
                       .sharesBlocks = node.sharesBlocksWithClones(),
                       .reportsPrivateSize = node.reportsPrivateSize,
                       .node = &node};
    if (node.isDirectory() && !removals.isEmpty()) {
        const Removals::Sums rest = removals.restOf(node);
        entry.size = rest.size;
        entry.allocatedSize = rest.allocatedSize;
        entry.reclaimableSize = rest.reclaimableSize;
        entry.fileCount = rest.fileCount;
        entry.directoryCount = rest.directoryCount;
    }
    return entry;
}

} // namespace tarnwell
