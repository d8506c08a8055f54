#include "TarnwellTidyKit/Browser/Removals.hpp"

namespace tarnwell {

const FileNode* commonFolder(const FileNode* one, const FileNode* other) {
    if (one == nullptr || other == nullptr)
        return one == nullptr ? other : one;
    std::size_t depth = one->depth();
    std::size_t otherDepth = other->depth();
    for (; depth > otherDepth; --depth)
        one = one->parent();
    for (; otherDepth > depth; --otherDepth)
        other = other->parent();
    while (one != other) {
        one = one->parent();
        other = other->parent();
    }
    return one;
}

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

void Removals::note(const FileNode& node, bool isForGood) {
    if (nodes_.contains(node))
        return;
    change(node, 1);
    nodes_.insert(node);
    all_.insert(&node);
    if (isForGood)
        forGood_.insert(&node);
}

void Removals::restore(const FileNode& node) {
    if (!nodes_.contains(node))
        return;
    nodes_.erase(node);
    all_.erase(&node);
    forGood_.erase(&node);
    change(node, -1);
}

std::vector<const FileNode*> Removals::remaining(const std::vector<const FileNode*>& nodes) const {
    if (isEmpty())
        return nodes;
    std::vector<const FileNode*> left;
    std::vector<const FileNode*> pending = nodes;
    while (!pending.empty()) {
        const FileNode* node = pending.back();
        pending.pop_back();
        if (nodes_.contains(*node))
            continue;
        if (!losses_.contains(node))
            left.push_back(node);
        else
            pending.insert(pending.end(), node->children().begin(), node->children().end());
    }
    return left;
}

SearchTotals Removals::totalsOf(const std::vector<const FileNode*>& found) const {
    std::unordered_set<const FileNode*> folders; // what they hold adds nothing
    for (const FileNode* node : found)
        if (node->isDirectory())
            folders.insert(node);
    const auto isCovered = [&](const FileNode& node) {
        for (const FileNode* above = node.parent(); above != nullptr && !folders.empty();
             above = above->parent())
            if (folders.contains(above))
                return true;
        return false;
    };
    constexpr FileNodeFlags uncounted = FileNodeFlags::hardlinkDuplicate | FileNodeFlags::inaccessible;
    SearchTotals totals{.count = static_cast<std::int64_t>(found.size())};
    for (const FileNode* node : found) {
        if ((!node->isDirectory() && node->flags.intersects(uncounted)) || isCovered(*node))
            continue;
        const Sums rest = restOf(*node);
        totals.size += rest.size;
        totals.allocatedSize += rest.allocatedSize;
        totals.reclaimableSize += rest.reclaimableSize;
    }
    return totals;
}

const FileNode* Removals::place() const {
    const FileNode* place = nullptr;
    for (const FileNode* node : all_)
        place = commonFolder(place, node->parent() != nullptr ? node->parent() : node);
    return place;
}

} // namespace tarnwell
