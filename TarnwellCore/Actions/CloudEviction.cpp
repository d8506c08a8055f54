#include "TarnwellCore/Actions/CloudEviction.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tarnwell::CloudEviction {

namespace {

constexpr FileNodeFlags withoutContentsOfItsOwn = FileNodeFlags::symlink | FileNodeFlags::hardlinkDuplicate |
                                                  FileNodeFlags::special | FileNodeFlags::dataless;

/// Whether a node may be evictable, as far as that shows without its path.
bool hasLocalContents(const FileNode& node) {
    return !node.isDirectory() && !node.flags.intersects(withoutContentsOfItsOwn) && node.size >= 1 &&
           node.allocatedSize >= 1;
}

/// Calls `body(node, path, root)` for the evictable files at and below a node. `path` is valid for the call.
/// Paths grow and shrink in one buffer, so a deep chain of folders costs no more than a wide one.
template <class Body>
void forEachEvictable(const FileNode& start, std::span<const SyncedRoot> roots, Body&& body) {
    struct Pending {
        const FileNode* node;
        std::size_t parentLength; // of the parent's path, which the buffer begins with
    };
    const auto prepared = SyncedRoots::prepare(roots);
    std::string path = start.path();
    std::vector<Pending> pending{{&start, path.size()}};
    while (!pending.empty()) {
        const auto [node, parentLength] = pending.back();
        pending.pop_back();
        path.resize(parentLength);
        if (node != &start) {
            if (!path.ends_with('/'))
                path += '/';
            path += node->name();
        }
        if (node->isDirectory()) {
            if (SyncedRoots::touches(path, prepared))
                for (const FileNode* child : node->children())
                    pending.push_back({child, path.size()});
        } else if (hasLocalContents(*node)) {
            if (const SyncedRoot* root = SyncedRoots::root(path, prepared))
                body(*node, path, *root);
        }
    }
}

EvictableItem item(const FileNode& node, std::string path, const SyncedRoot& root) {
    return {std::move(path), std::string(node.displayName()), node.allocatedSize, root.provider};
}

} // namespace

std::optional<EvictableItem> evictableItem(const FileNode& node,
                                           std::span<const SyncedRoots::PreparedRoot> prepared) {
    if (!hasLocalContents(node))
        return std::nullopt;
    std::string path = node.path();
    const SyncedRoot* root = SyncedRoots::root(path, prepared);
    if (root == nullptr)
        return std::nullopt;
    return item(node, std::move(path), *root);
}

std::int64_t evictableAllocatedBytes(const FileNode& of, std::span<const SyncedRoot> roots) {
    std::int64_t bytes = 0;
    forEachEvictable(of, roots, [&](const FileNode& node, const std::string&, const SyncedRoot&) {
        addChecked(bytes, node.allocatedSize);
    });
    return bytes;
}

EvictionSummary evictableSummary(const ScanResult& in, std::span<const SyncedRoot> roots) {
    EvictionSummary summary;
    if (!in.root)
        return summary;
    forEachEvictable(*in.root, roots,
                     [&](const FileNode& node, const std::string& path, const SyncedRoot& root) {
                         addChecked(summary.bytes, node.allocatedSize);
                         addChecked(summary.itemCount, 1);
                         summary.items.push_back(item(node, path, root));
                     });
    std::ranges::sort(summary.items, [](const EvictableItem& a, const EvictableItem& b) {
        return a.allocatedSize != b.allocatedSize ? a.allocatedSize > b.allocatedSize : a.path < b.path;
    });
    return summary;
}

} // namespace tarnwell::CloudEviction
