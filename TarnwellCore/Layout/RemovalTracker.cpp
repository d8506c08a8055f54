#include "TarnwellCore/Layout/RemovalTracker.hpp"

#include <algorithm>
#include <utility>

namespace tarnwell {

namespace {

/// Takes the first name off a path; empty at its end.
std::string_view takeName(std::string_view& path) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    return name;
}

/// What is left of the path below the folder; false when it does not lie there.
bool takeFolder(std::string_view& path, std::string_view folder) {
    if (!path.starts_with('/') || !folder.starts_with('/'))
        return false;
    while (true) {
        const std::string_view name = takeName(folder);
        if (name.empty())
            return true;
        if (takeName(path) != name)
            return false;
    }
}

} // namespace

RemovalTracker::RemovalTracker(std::shared_ptr<const FileNode> root)
    : root_(std::move(root)), current_(std::make_shared<RemovedNodes>()) {}

const FileNode* RemovalTracker::nodeAt(std::string_view path) const {
    if (!root_ || !takeFolder(path, root_->name()))
        return nullptr;
    const FileNode* node = root_.get();
    for (std::string_view name = takeName(path); !name.empty(); name = takeName(path)) {
        const auto children = node->children();
        const auto child = std::ranges::find(children, name, &FileNode::name);
        if (child == children.end())
            return nullptr;
        node = *child;
    }
    return node;
}

template <class Change>
std::size_t RemovalTracker::change(std::span<const std::string> paths, Change change) {
    const std::lock_guard guard(mutex_);
    const auto changed = std::make_shared<RemovedNodes>(*current_);
    for (const std::string& path : paths)
        if (const FileNode* const node = nodeAt(path))
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
