#include "TarnwellCore/Layout/RemovalTracker.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/NameForms.hpp"

#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

/// Finds many paths, most of them in few folders: the children of each folder are gone through once.
class NodeLookup {
public:
    explicit NodeLookup(const RemovalTracker& tracker) : tracker_(tracker) {}

    const FileNode* nodeAt(std::string_view path) {
        const std::string_view name = PathUtil::lastComponent(path);
        const auto start = static_cast<std::size_t>(name.data() - path.data());
        const std::string_view folder = path.substr(0, start);
        if (folder.empty())
            return tracker_.nodeAt(path);
        const auto [children, isNew] = folders_.try_emplace(folder);
        if (isNew)
            if (const FileNode* const node = tracker_.nodeAt(folder))
                for (const FileNode* child : node->children())
                    children->second.emplace(child->name(), child);
        if (const auto found = children->second.find(name); found != children->second.end())
            return found->second;
        // The root, whose folder is not in the tree, or another form of a name.
        return children->second.empty() || mayHaveOtherForms(name) ? tracker_.nodeAt(path) : nullptr;
    }

private:
    using Children = std::unordered_map<std::string_view, const FileNode*>;
    const RemovalTracker& tracker_;
    std::unordered_map<std::string_view, Children> folders_;
};

} // namespace

RemovalTracker::RemovalTracker(std::shared_ptr<const FileNode> root)
    : root_(std::move(root)), current_(std::make_shared<RemovedNodes>()) {}

const FileNode* RemovalTracker::nodeAt(std::string_view path) const {
    return root_ && path.starts_with('/') ? root_->node(path) : nullptr;
}

template <class Change>
std::size_t RemovalTracker::change(std::span<const std::string> paths, Change change) {
    std::vector<const FileNode*> nodes; // the tree does not change: nobody waits while it is searched
    NodeLookup lookup(*this);
    for (const std::string& path : paths)
        if (const FileNode* const node = paths.size() == 1 ? nodeAt(path) : lookup.nodeAt(path))
            nodes.push_back(node);
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
