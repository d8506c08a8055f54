#include "TarnwellCore/Scanning/HardlinkRegistry.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/PathStep.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <algorithm>
#include <mutex>
#include <utility>

namespace tarnwell {

namespace {

const FileNode& ancestorOf(const FileNode& node, std::size_t levels) {
    const FileNode* ancestor = &node;
    for (; levels > 0; --levels)
        ancestor = ancestor->parent();
    return *ancestor;
}

/// Whether the path of `a` is smaller in byte order than that of `b`, without building either. Both are nodes
/// of one tree.
bool precedesByPath(const FileNode& a, const FileNode& b) {
    const std::size_t depthOfA = a.depth();
    const std::size_t depthOfB = b.depth();
    const FileNode* left = &ancestorOf(a, depthOfA - std::min(depthOfA, depthOfB));
    const FileNode* right = &ancestorOf(b, depthOfB - std::min(depthOfA, depthOfB));
    while (left->parent() != right->parent()) {
        left = left->parent();
        right = right->parent();
    }
    const PathStep leftStep{left->name(), left == &a};
    const PathStep rightStep{right->name(), right == &b};
    if (leftStep < rightStep || rightStep < leftStep)
        return leftStep < rightStep;
    // Two folders of one name can only be one that was replaced while its parent was read.
    return a.path() < b.path();
}

std::string pathOf(const HardlinkRegistry::CollapsedLink& link) {
    return link.folder.child(link.name)->path();
}

} // namespace

bool HardlinkRegistry::isFirst(const INodeKey& key) {
    Shard& links = shard(key);
    const std::lock_guard guard(links.lock);
    return links.seenINodes.insert(key).second;
}

bool HardlinkRegistry::record(const INodeKey& key, FileNode& link) {
    Shard& links = shard(key);
    const std::lock_guard guard(links.lock);
    const auto [position, isFirst] = links.hardlinkGroups.try_emplace(key);
    Group& group = position->second;
    if (isFirst) {
        group.first = group.owner = &link;
    } else if (group.owner != nullptr ? precedesByPath(link, *group.owner)
                                      : link.path() < pathOf(*group.collapsedOwner)) {
        group.owner = &link;
        group.collapsedOwner.reset();
    }
    return isFirst;
}

bool HardlinkRegistry::record(const INodeKey& key, CollapsedLink link) {
    Shard& links = shard(key);
    const std::lock_guard guard(links.lock);
    const auto [position, isFirst] = links.hardlinkGroups.try_emplace(key);
    Group& group = position->second;
    if (isFirst ||
        pathOf(link) < (group.owner != nullptr ? group.owner->path() : pathOf(*group.collapsedOwner))) {
        group.owner = nullptr;
        group.collapsedOwner = std::make_unique<CollapsedLink>(std::move(link));
    }
    return isFirst;
}

void HardlinkRegistry::assignOwners() {
    for (Shard& links : shards_) {
        const std::lock_guard guard(links.lock);
        for (auto& [key, group] : links.hardlinkGroups) {
            if (group.first != nullptr && group.first != group.owner)
                setHardlinkDuplicate(*group.first, true);
            if (group.owner != nullptr && group.first != group.owner)
                setHardlinkDuplicate(*group.owner, false);
            if (const CollapsedLink* link = group.collapsedOwner.get()) {
                addChecked(link->collapseTarget->size, link->size);
                addChecked(link->collapseTarget->allocatedSize, link->allocatedSize);
                addChecked(link->collapseTarget->reclaimableSize, link->reclaimableSize);
            }
        }
        links.hardlinkGroups.clear();
    }
}

} // namespace tarnwell
