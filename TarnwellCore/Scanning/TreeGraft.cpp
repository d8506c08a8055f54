#include "TarnwellCore/Scanning/TreeGraft.hpp"

#include "TarnwellCore/Platform/PathNesting.hpp"
#include "TarnwellCore/Scanning/FolderPaths.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <algorithm>
#include <optional>
#include <tuple>

namespace tarnwell {

namespace {

INodeKey keyOf(const FileLinks& links) {
    return {links.device, links.inode};
}

/// How many links a file has, as all of these say; 0 when they do not agree.
std::uint32_t linkCount(std::span<const FileNode* const> links) {
    std::uint32_t count = 0;
    for (const FileNode* link : links) {
        const std::uint32_t own = link->sharing().links.count;
        if (count != 0 && own != count)
            return 0;
        count = own;
    }
    return count;
}

template <class Links>
std::span<const FileNode* const> linksAt(const Links& links, const INodeKey& key) {
    const auto found = links.find(key);
    return found == links.end() ? std::span<const FileNode* const>() : std::span(found->second);
}

/// Whether the file at this path is still the one that was scanned, with so many links.
bool isUnchanged(const FileNode& node, const INodeKey& key, std::uint32_t links) {
    const auto now = PathMetadata::lstat(node.path());
    return now && now->deviceID == key.device && now->fileID == key.inode && now->linkCount == links &&
           now->logicalSize == node.size && now->allocatedSize == node.allocatedSize &&
           now->modificationDate == node.modificationDate();
}

} // namespace

TreeGraft::TreeGraft(const ScanResult& old, const FileNode& folder, TreeArena& arena,
                     HardlinkRegistry& hardlinks)
    : old_(old),
      folder_(folder),
      hardlinks_(hardlinks),
      region_(arena.borrowRegion()),
      chain_(folder.breadcrumb()) {
    chain_.pop_back();
    for (const FileNode* node : chain_)
        copies_.push_back(copy(*node, copies_.empty() ? nullptr : copies_.back()));
}

bool TreeGraft::isPossible(const ScanResult& old, const FileNode& folder) {
    if (&folder == old.root.get() || !old.options.keepsSharing ||
        std::ssize(old.inaccessiblePaths) != old.stats.inaccessibleCount)
        return false;
    // Of what has no nodes, nobody knows which links and marks it holds.
    bool hasSumsOnly = false;
    old.root->forEachDescendant([&](const FileNode& node) {
        hasSumsOnly = hasSumsOnly || node.flags.contains(FileNodeFlags::collapsed);
        return !hasSumsOnly;
    });
    return !hasSumsOnly;
}

bool TreeGraft::complete(FileNode* found) {
    const Kept before = keptBelow(&folder_, nullptr);
    const Kept now = keptBelow(found, nullptr);
    const Kept outside = keptBelow(old_.root.get(), &folder_);
    if (!matchLinks(before, now, outside) || !matchBlocks(before, now, outside))
        return false;
    copyOutside(found);
    return true;
}

TreeGraft::Kept TreeGraft::keptBelow(const FileNode* top, const FileNode* except) const {
    Kept kept;
    if (top == nullptr)
        return kept;
    top->forEachDescendant([&](const FileNode& node) {
        if (&node == except)
            return false;
        if (!node.keepsSharing())
            return true;
        const KeptSharing sharing = node.sharing();
        if (sharing.links.count > 0)
            kept.links[keyOf(sharing.links)].push_back(&node);
        for (const SharedExtent& extent : sharing.extents) {
            if ((sharing.traits & HeldSpace::cloneGroup) != 0) {
                auto& [count, references] = kept.groups[{sharing.fileSystem, extent.start}];
                ++count;
                references = std::max(references, sharing.references);
            } else {
                kept.extents.push_back({sharing.fileSystem, extent.start, extent.start + extent.length});
            }
        }
        return true;
    });
    unite(kept.extents);
    return kept;
}

/// In order, without gaps or overlaps between those that touch.
void TreeGraft::unite(Ranges& ranges) {
    std::ranges::sort(ranges, {}, [](const Range& each) { return std::tuple(each.fileSystem, each.start); });
    std::size_t count = 0;
    for (const Range& range : ranges) {
        if (count > 0 && ranges[count - 1].fileSystem == range.fileSystem &&
            range.start <= ranges[count - 1].end)
            ranges[count - 1].end = std::max(ranges[count - 1].end, range.end);
        else
            ranges[count++] = range;
    }
    ranges.resize(count);
}

/// What is left of the ranges. Both are united, as is the result.
TreeGraft::Ranges TreeGraft::without(const Ranges& ranges, const Ranges& others) {
    Ranges left;
    auto other = others.begin();
    for (Range range : ranges) {
        while (other != others.end() &&
               (other->fileSystem < range.fileSystem ||
                (other->fileSystem == range.fileSystem && other->end <= range.start)))
            ++other;
        for (auto each = other; each != others.end() && each->fileSystem == range.fileSystem &&
                                each->start < range.end && range.start < range.end;
             ++each) {
            if (range.start < each->start)
                left.push_back({range.fileSystem, range.start, each->start});
            range.start = std::max(range.start, each->end);
        }
        if (range.start < range.end)
            left.push_back(range);
    }
    return left;
}

/// Every file that has or had several links, one of them inside: those outside must be known from it.
bool TreeGraft::matchLinks(const Kept& before, const Kept& now, const Kept& outside) {
    for (const auto& [key, links] : now.links) {
        const auto linksBefore = linksAt(before.links, key);
        const auto linksOutside = linksAt(outside.links, key);
        const std::uint32_t count = linkCount(links);
        // Links that the scan did not see: had there been others, one may be an outside file that had but
        // one.
        const std::int64_t unseen = std::int64_t{count} - std::ssize(links) - std::ssize(linksOutside);
        std::int64_t unseenBefore = 0;
        if (!linksBefore.empty() || !linksOutside.empty())
            unseenBefore = std::int64_t{linkCount(linksOutside.empty() ? linksBefore : linksOutside)} -
                           std::ssize(linksBefore) - std::ssize(linksOutside);
        if (count == 0 || unseen != unseenBefore)
            return false;
        if (!linksOutside.empty())
            renewed_.emplace(key, std::pair(links.front(), count));
    }
    for (const auto& [key, links] : before.links) {
        const auto linksOutside = linksAt(outside.links, key);
        if (now.links.contains(key) || linksOutside.empty())
            continue;
        const std::int64_t left = std::int64_t{linkCount(linksOutside)} - std::ssize(links);
        if (left < 1 || !isUnchanged(*linksOutside.front(), key, static_cast<std::uint32_t>(left)))
            return false;
        renewed_.emplace(key, std::pair(nullptr, static_cast<std::uint32_t>(left)));
    }
    return true;
}

/// Blocks that became shared may be those of an outside file that shared nothing before; of those that are
/// not shared from here any more, an outside file may be the last user.
bool TreeGraft::matchBlocks(const Kept& before, const Kept& now, const Kept& outside) {
    const Ranges gone = without(before.extents, now.extents);
    std::uint64_t overlap = 0;
    for (const Range& range : gone)
        overlap += range.end - range.start;
    for (const Range& range : without(gone, outside.extents))
        overlap -= range.end - range.start;
    if (overlap > 0 || !without(now.extents, before.extents).empty())
        return false;
    const auto isMatched = [&](const auto& some, const auto& others) {
        return std::ranges::all_of(some, [&](const auto& group) {
            const auto other = others.find(group.first);
            if (other != others.end() && other->second == group.second)
                return true;
            const bool isAllInside = std::cmp_equal(group.second.first, group.second.second);
            return isAllInside && !outside.groups.contains(group.first);
        });
    };
    return isMatched(before.groups, now.groups) && isMatched(now.groups, before.groups);
}

/// One node, without its children.
FileNode* TreeGraft::copy(const FileNode& node, FileNode* parent) {
    const FileNode* source = &node; // of what all links of a file have in common
    std::optional<std::uint32_t> links;
    FileNodeAttributes attributes;
    SharingAttributes sharing;
    HeldSpace held;
    if (node.keepsSharing() && !renewed_.empty()) {
        const auto renewed = renewed_.find(keyOf(node.sharing().links));
        if (renewed != renewed_.end()) {
            links = renewed->second.second;
            if (renewed->second.first != nullptr)
                source = renewed->second.first;
        }
    }
    if (source->keepsSharing()) {
        const KeptSharing kept = source->sharing();
        sharing.links = kept.links;
        sharing.links.count = links.value_or(kept.links.count);
        if (sharing.links.count < 2)
            sharing.links = {};
        if (kept.hasHeld) {
            held = {.traits = kept.traits,
                    .fileSystem = kept.fileSystem,
                    .references = kept.references,
                    .exclusive = kept.exclusive,
                    .extents = {kept.extents.begin(), kept.extents.end()}};
            sharing.held = &held;
        }
        if (sharing.links.count > 0 || sharing.held != nullptr)
            attributes.sharing = &sharing;
    }
    if (!node.isDirectory()) {
        attributes.size = source->size;
        attributes.allocatedSize = source->allocatedSize;
        attributes.privateSize = source->privateSize();
        attributes.reportsPrivateSize = source->reportsPrivateSize;
    }
    attributes.modificationSeconds = source->modificationSeconds;
    attributes.accessSeconds = source->accessSeconds;
    attributes.extFlags = source->extFlags;
    attributes.flags = node.flags;
    attributes.flags.remove(FileNodeFlags::hardlinkDuplicate);
    attributes.category = node.category;
    FileNode* copied = region_->makeNode(parent, node.name(), node.isDirectory(), attributes);
    if (node.isDirectory() && node.children().empty()) { // a placeholder's own; of others nothing
        copied->size = node.size;
        copied->allocatedSize = node.allocatedSize;
        copied->reclaimableSize = node.reclaimableSize;
    }
    if (sharing.links.count > 1 && old_.options.deduplicateHardlinks &&
        !hardlinks_.record(keyOf(sharing.links), *copied)) {
        copied->flags.insert(FileNodeFlags::hardlinkDuplicate);
        ++stats_.hardlinkDuplicateCount;
        addChecked(stats_.hardlinkSavedBytes, copied->size);
    }
    return copied;
}

/// What a worker counts besides sizes, files and folders.
void TreeGraft::count(const FileNode& node, std::int64_t depth) {
    const auto has = [&](FileNodeFlags flag) { return node.flags.contains(flag) ? 1 : 0; };
    stats_.symlinkCount += has(FileNodeFlags::symlink);
    stats_.packageCount += has(FileNodeFlags::package);
    stats_.mountPointCount += has(FileNodeFlags::mountPoint);
    stats_.inaccessibleEntryCount += has(FileNodeFlags::inaccessible); // folders are taken off at the end
    const FileNodeFlags leaf = FileNodeFlags::excluded | FileNodeFlags::dataless;
    const bool isUnknown =
        node.flags.contains(FileNodeFlags::inaccessible) && node.modificationSeconds == FileNode::missingTime;
    const bool isEntered = node.isDirectory() && !node.flags.intersects(leaf) && !isUnknown &&
                           (!node.flags.contains(FileNodeFlags::mountPoint) ||
                            old_.options.crossFilesystemBoundaries || !node.children().empty());
    if (isEntered)
        stats_.maximumDepth = std::max(stats_.maximumDepth, depth);
}

void TreeGraft::copyOutside(FileNode* found) {
    struct Step {
        const FileNode* from;
        FileNode* to;
        std::int64_t depth;
    };
    std::vector<Step> steps{{chain_.front(), copies_.front(), 0}};
    std::vector<FileNode*> folders;
    NodeSorter files;
    while (!steps.empty()) {
        const Step step = steps.back();
        steps.pop_back();
        count(*step.from, step.depth);
        const auto level = static_cast<std::size_t>(step.depth);
        const bool isOnTheWay = level < chain_.size() && chain_[level] == step.from;
        FolderSums sums;
        const auto add = [&](FileNode& node) {
            if (node.isDirectory()) {
                folders.push_back(&node);
                return;
            }
            sums.add(node);
            files.add(node);
        };
        for (const FileNode* child : step.from->children()) {
            if (child == &folder_)
                continue;
            const bool isNextOnTheWay = isOnTheWay && level + 1 < chain_.size() && chain_[level + 1] == child;
            FileNode* copied = isNextOnTheWay ? copies_[level + 1] : copy(*child, step.to);
            add(*copied);
            if (child->isDirectory())
                steps.push_back({child, copied, step.depth + 1});
            else
                count(*child, step.depth + 1);
        }
        if (found != nullptr && step.to == &parent())
            add(*found);
        const std::size_t size = folders.size() + files.count();
        if (size == 0 && step.to != &parent())
            continue;
        sums.store(*step.to, folders.size());
        const auto children = region_->makeChildArray(size);
        std::ranges::copy(folders, files.takeInto(children).begin());
        step.to->setChildren(children);
        folders.clear();
    }
    const std::int64_t folderCount = std::ssize(outsideInaccessiblePaths());
    stats_.inaccessibleCount = folderCount;
    stats_.inaccessibleEntryCount -= folderCount;
}

std::vector<std::string> TreeGraft::outsideInaccessiblePaths() const {
    const std::string folder = folder_.path();
    std::vector<std::string> paths;
    std::ranges::copy_if(old_.inaccessiblePaths, std::back_inserter(paths),
                         [&](const std::string& path) { return !isAtOrBelow(path, folder); });
    return paths;
}

} // namespace tarnwell
