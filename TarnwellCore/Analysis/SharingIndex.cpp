#include "TarnwellCore/Analysis/SharingIndex.hpp"

#include <algorithm>
#include <functional>
#include <numeric>
#include <tuple>

namespace tarnwell {

namespace {

std::int64_t floored(std::int64_t bytes) {
    return std::max<std::int64_t>(bytes, 0);
}

/// Of these files a part, or all, is somebody else's too: a clone's or, without a word of clones, a
/// snapshot's.
bool holdsSharedBlocks(const FileNode& node) {
    return node.sharesBlocksWithClones() ||
           (node.reportsPrivateSize && node.privateSize() < node.allocatedSize);
}

} // namespace

SharingIndex::SharingIndex(const FileNode& root) {
    struct Step {
        const FileNode* folder;
        std::uint32_t firstName; // none: still to be entered
    };
    std::vector<Step> steps;
    if (root.isDirectory())
        steps.push_back({&root, none});
    else
        addFile(root);
    while (!steps.empty()) {
        const Step step = steps.back();
        if (step.firstName != none) {
            const auto end = static_cast<std::uint32_t>(names_.size());
            if (end > step.firstName)
                ranges_.emplace(step.folder, Range{step.firstName, end});
            steps.pop_back();
            continue;
        }
        steps.back().firstName = static_cast<std::uint32_t>(names_.size());
        addFolder(*step.folder);
        for (const FileNode* child : step.folder->children()) {
            if (child->isDirectory())
                steps.push_back({child, none});
            else
                addFile(*child);
        }
    }
    byAddress_.resize(names_.size());
    std::iota(byAddress_.begin(), byAddress_.end(), 0u);
    std::ranges::sort(byAddress_, std::less<>(), [this](std::uint32_t name) { return names_[name].node; });
    makeIslands();
}

void SharingIndex::addName(const FileNode& node, std::uint32_t body) {
    std::uint32_t next = none;
    if (body != none) {
        next = std::exchange(bodies_[body].firstName, static_cast<std::uint32_t>(names_.size()));
        ++bodies_[body].knownLinks;
    }
    names_.push_back({&node, body, next});
}

void SharingIndex::addFolder(const FileNode& node) {
    const bool isUnread = node.flags.contains(FileNodeFlags::inaccessible) ||
                          node.flags.contains(FileNodeFlags::excluded) ||
                          (node.flags.contains(FileNodeFlags::mountPoint) && node.children().empty());
    const bool isSum = node.flags.contains(FileNodeFlags::collapsed);
    if (isUnread || isSum) {
        hasUnseen_ = true;
        addName(node, none);
    }
}

void SharingIndex::addFile(const FileNode& node) {
    if (node.flags.contains(FileNodeFlags::inaccessible) || node.flags.contains(FileNodeFlags::excluded)) {
        hasUnseen_ = true;
        addName(node, none);
    } else if (node.flags.contains(FileNodeFlags::dataless)) {
        addName(node, none);
    } else if (node.keepsSharing() || holdsSharedBlocks(node)) {
        addName(node, bodyOf(node));
    } else if (node.allocatedSize > 0 && !node.reportsPrivateSize && !node.isSymlink()) {
        hasUnseen_ = true; // of the file's blocks, so a sharer of others' may be overlooked
    }
}

std::uint32_t SharingIndex::bodyOf(const FileNode& node) {
    const KeptSharing kept = node.sharing();
    const auto added = static_cast<std::uint32_t>(bodies_.size());
    if (kept.links.count > 1) {
        const auto [position, isNew] =
            bodyOfINode_.try_emplace(INodeKey{kept.links.device, kept.links.inode}, added);
        if (!isNew) {
            // Links may come and go while a scan runs.
            Body& body = bodies_[position->second];
            body.links = std::max(body.links, kept.links.count);
            return position->second;
        }
    }
    bodies_.emplace_back();
    fill(bodies_.back(), added, node, kept);
    return added;
}

void SharingIndex::fill(Body& body, std::uint32_t index, const FileNode& node, const KeptSharing& kept) {
    body.allocated = floored(node.allocatedSize);
    body.links = std::max<std::uint32_t>(kept.links.count, 1);
    body.traits = kept.traits;
    body.firstExtent = static_cast<std::uint32_t>(placedEdges_.size() / 2);
    if (!kept.hasHeld) {
        body.exclusive =
            holdsSharedBlocks(node) ? std::min(floored(node.privateSize()), body.allocated) : body.allocated;
        body.sharedSomewhere = floored(body.allocated - body.exclusive);
        if (body.sharedSomewhere > 0)
            changedClones_.push_back(index);
        return;
    }
    if ((kept.traits & HeldSpace::cloneGroup) != 0) {
        joinCloneGroup(body, kept);
        return;
    }
    std::int64_t shared = 0;
    for (const SharedExtent& extent : kept.extents) {
        if (extent.length == 0 || extent.start + extent.length < extent.start)
            continue;
        const auto number = static_cast<std::uint32_t>(placedEdges_.size() / 2);
        placedEdges_.push_back({kept.fileSystem, number, {extent.start, index, false}});
        placedEdges_.push_back({kept.fileSystem, number, {extent.start + extent.length, index, true}});
        if (__builtin_add_overflow(shared, extent.length, &shared))
            shared = body.allocated;
    }
    body.extentCount = static_cast<std::uint32_t>(placedEdges_.size() / 2) - body.firstExtent;
    const bool isKnown = (kept.traits & HeldSpace::knowsExclusive) != 0;
    body.exclusive = floored(isKnown ? kept.exclusive : body.allocated - shared);
}

void SharingIndex::joinCloneGroup(Body& body, const KeptSharing& kept) {
    body.exclusive = body.allocated;
    if (kept.extents.empty())
        return;
    const SharedExtent& common = kept.extents.front();
    const bool isKnown = (kept.traits & HeldSpace::knowsExclusive) != 0;
    body.exclusive =
        floored(isKnown ? kept.exclusive : body.allocated - static_cast<std::int64_t>(common.length));
    const auto [position, isNew] = groupOfIdentifier_.try_emplace(
        std::pair(kept.fileSystem, common.start), static_cast<std::uint32_t>(cloneGroups_.size()));
    if (isNew)
        cloneGroups_.push_back({.references = kept.references});
    body.cloneGroup = position->second;
    CloneGroup& group = cloneGroups_[position->second];
    ++group.known;
    group.references = std::max(group.references, kept.references);
    group.length = std::max(group.length, static_cast<std::int64_t>(common.length));
}

void SharingIndex::makeIslands() {
    // A run that ends where another begins has nothing of it.
    std::ranges::sort(placedEdges_, std::less<>(), [](const PlacedEdge& placed) {
        return std::tuple(placed.fileSystem, placed.edge.place, !placed.edge.isEnd);
    });
    islandOfExtent_.resize(placedEdges_.size() / 2);
    edges_.reserve(placedEdges_.size());
    std::uint32_t open = 0;
    for (const PlacedEdge& placed : placedEdges_) {
        if (open == 0)
            islands_.push_back({static_cast<std::uint32_t>(edges_.size()), 0});
        open = placed.edge.isEnd ? open - 1 : open + 1;
        edges_.push_back(placed.edge);
        islands_.back().end = static_cast<std::uint32_t>(edges_.size());
        islandOfExtent_[placed.extent] = static_cast<std::uint32_t>(islands_.size() - 1);
    }
    // To assign an empty list would keep the memory.
    placedEdges_ = decltype(placedEdges_)();
    bodyOfINode_ = decltype(bodyOfINode_)();
    groupOfIdentifier_.clear();
}

SharingIndex::Range SharingIndex::namesBelow(const FileNode& node) const {
    if (node.isDirectory()) {
        const auto range = ranges_.find(&node);
        return range == ranges_.end() ? Range{} : range->second;
    }
    const auto place = std::ranges::lower_bound(byAddress_, &node, std::less<>(),
                                                [this](std::uint32_t name) { return names_[name].node; });
    if (place == byAddress_.end() || names_[*place].node != &node)
        return {};
    return {*place, *place + 1};
}

} // namespace tarnwell
