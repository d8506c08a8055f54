#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <cstddef>
#include <string_view>
#include <utility>

namespace tarnwell {

namespace {

std::int64_t chosen(SizeMode mode, std::int64_t apparent, std::int64_t allocated, std::int64_t reclaimable) {
    switch (mode) {
    case SizeMode::apparent:
        return apparent;
    case SizeMode::allocated:
        return allocated;
    case SizeMode::reclaimable:
        return reclaimable;
    }
    return apparent;
}

/// Puts a child's name behind its parent's relative path.
void appendComponent(std::string& path, std::string_view name) {
    if (!path.empty() && !path.ends_with('/'))
        path += '/';
    path += name;
}

ScanSnapshot::Entry makeEntry(const std::string& path, const FileNode& node) {
    return {.path = path,
            .size = node.size,
            .allocatedSize = node.allocatedSize,
            .reclaimableSize = node.reclaimableSize,
            .fileCount = node.fileCount(),
            .isDirectory = node.isDirectory()};
}

std::vector<ScanSnapshot::Entry> keptItems(const FileNode& root, std::int64_t maxDepth,
                                           std::int64_t minimumSize) {
    /// A folder whose children are being visited.
    struct Level {
        std::span<FileNode* const> pending;
        std::size_t pathLength;
    };
    std::string path; // of the item being visited
    std::vector<ScanSnapshot::Entry> entries{makeEntry(path, root)};
    std::vector<Level> levels; // from the root down
    if (maxDepth > 0)
        levels.push_back({root.children(), 0});
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.pending.empty()) {
            levels.pop_back();
            continue;
        }
        const FileNode& node = *level.pending.front();
        level.pending = level.pending.subspan(1);
        const bool isKept = node.size >= minimumSize;
        const bool isEntered = !node.children().empty() && std::cmp_less(levels.size(), maxDepth);
        // Most items of a tree are neither; they cost a look and no text.
        if (!isKept && !isEntered)
            continue;
        path.resize(level.pathLength);
        appendComponent(path, node.name());
        if (isKept)
            entries.push_back(makeEntry(path, node));
        if (isEntered)
            levels.push_back({node.children(), path.size()});
    }
    return entries;
}

} // namespace

std::int64_t ScanSnapshot::Entry::sizeFor(SizeMode mode) const {
    return chosen(mode, size, allocatedSize, reclaimableSize);
}

std::int64_t ScanSnapshot::totalSizeFor(SizeMode mode) const {
    return chosen(mode, totalSize, totalAllocatedSize, totalReclaimableSize);
}

ScanSnapshot ScanSnapshot::capture(const ScanResult& result, std::int64_t maxDepth,
                                   std::int64_t minimumSize) {
    ScanSnapshot snapshot;
    snapshot.id = UUID::random();
    snapshot.createdAt = currentDate();
    snapshot.totalSize = result.stats.totalSize;
    snapshot.totalAllocatedSize = result.stats.totalAllocatedSize;
    snapshot.totalReclaimableSize = result.stats.totalReclaimableSize;
    snapshot.totalFiles = result.stats.fileCount;
    snapshot.minimumSize = minimumSize;
    if (result.root) {
        snapshot.rootPath = result.root->path();
        snapshot.entries = keptItems(*result.root, maxDepth, minimumSize);
    }
    return snapshot;
}

} // namespace tarnwell

std::size_t std::hash<tarnwell::ScanSnapshot::Entry>::operator()(
    const tarnwell::ScanSnapshot::Entry& entry) const noexcept {
    std::size_t value = std::hash<std::string>()(entry.path);
    for (const std::int64_t number : {entry.size, entry.allocatedSize, entry.reclaimableSize, entry.fileCount,
                                      std::int64_t{entry.isDirectory}})
        value = value * 31 + std::hash<std::int64_t>()(number);
    return value;
}
