#pragma once

// Which items of a scanned tree the user has removed since, told by path: what moves to the Trash and comes
// back is known by its path, and on other threads than the viewer's.

#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

namespace tarnwell {

/// Follows one tree and keeps it alive. Every function is safe from any thread.
class RemovalTracker {
public:
    explicit RemovalTracker(std::shared_ptr<const FileNode> root);

    /// The items at these full paths are gone (each call of a batch costs the items removed so far once). A
    /// path that the tree does not hold, or that names the root's outside, changes nothing. Returns how many
    /// nodes are removed now that were not before.
    std::size_t noteRemoved(std::span<const std::string> paths);
    /// The items are back at these paths. What came back under another name was not scanned: the node of the
    /// old name stays removed, so nothing is noted for it. Returns how many nodes are no longer removed.
    std::size_t noteRestored(std::span<const std::string> paths);

    /// The set as it is now; it never changes, so viewers may lay out with it for as long as they like.
    std::shared_ptr<const RemovedNodes> current() const;

    /// The node at a full path of the tree; null when there is none. Trailing and doubled "/" do not matter,
    /// names are compared as by `FileNode::node`, and links are not resolved.
    const FileNode* nodeAt(std::string_view path) const;

private:
    template <class Change>
    std::size_t change(std::span<const std::string> paths, Change change);

    const std::shared_ptr<const FileNode> root_;
    mutable std::mutex mutex_;
    std::shared_ptr<const RemovedNodes> current_; // guarded by mutex_; replaced, never changed
};

} // namespace tarnwell
