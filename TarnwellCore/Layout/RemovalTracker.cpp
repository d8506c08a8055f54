#include "TarnwellCore/Layout/RemovalTracker.hpp"

#include "TarnwellCore/Scanning/NodeFinder.hpp"

#include <utility>
#include <vector>

namespace tarnwell {

RemovalTracker::RemovalTracker(std::shared_ptr<const FileNode> root)
    : root_(std::move(root)), current_(std::make_shared<RemovedNodes>()) {}

const FileNode* RemovalTracker::nodeAt(std::string_view path) const {
    return root_ && path.starts_with('/') ? root_->node(path) : nullptr;
}

template <class Change>
std::size_t RemovalTracker::change(std::span<const std::string> paths, Change change) {
    std::vector<const FileNode*> nodes; // the tree does not change: nobody waits while it is searched
    if (root_) {
        NodeFinder finder(*root_);
        for (const std::string& path : paths)
            if (const FileNode* const node = path.starts_with('/') ? finder.find(path) : nullptr)
                nodes.push_back(node);
    }
    const std::lock_guard guard(mutex_);
    const auto changed = std::make_shared<RemovedNodes>(*current_);
    for (const FileNode* const node : nodes)
        change(*changed, *node);
    const std::size_t before = current_->count();
    const std::size_t after = changed->count();
    if (before != after)
        current_ = changed;
    return before > after ? before - after : after - before;
}

std::size_t RemovalTracker::noteRemoved(std::span<const std::string> paths) {
    return change(paths, [](RemovedNodes& nodes, const FileNode& node) { nodes.insert(node); });
}

std::size_t RemovalTracker::noteRestored(std::span<const std::string> paths) {
    return change(paths, [](RemovedNodes& nodes, const FileNode& node) { nodes.erase(node); });
}

std::shared_ptr<const RemovedNodes> RemovalTracker::current() const {
    const std::lock_guard guard(mutex_);
    return current_;
}

} // namespace tarnwell
