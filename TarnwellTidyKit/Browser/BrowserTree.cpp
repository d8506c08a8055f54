#include "TarnwellTidyKit/Browser/BrowserTree.hpp"

#include "TarnwellCore/Scanning/NodeFinder.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include <algorithm>
#include <functional>
#include <utility>

namespace tarnwell {

BrowserTree::BrowserTree(ScanResult scan, const std::filesystem::path& home) : scan_(std::move(scan)) {
    // Protected places lie near the root of everything or near the home. Only those few folders are asked
    // about: asking looks at links.
    constexpr std::size_t deepest = 3;
    const std::filesystem::path rootPath = scan_.root->url();
    const auto levels = static_cast<std::size_t>(std::distance(rootPath.begin(), rootPath.end())) - 1;
    ProtectedPlaces places(home);
    const auto note = [&](const FileNode& node) {
        if (const std::string_view reason = places.reasonToStay(node.url()); !reason.empty())
            protected_.emplace(&node, reason);
    };
    note(*scan_.root);
    std::vector<const FileNode*> level{scan_.root.get()};
    for (std::size_t depth = levels; depth < deepest; ++depth) {
        std::vector<const FileNode*> next;
        for (const FileNode* folder : level)
            for (const FileNode* child : folder->children())
                if (child->isDirectory() || child->isSymlink()) {
                    note(*child);
                    if (child->isDirectory())
                        next.push_back(child);
                }
        if (next.size() > 10'000) // no ordinary root
            break;
        level = std::move(next);
    }
    if (const FileNode* node = scan_.root->node(home.native()))
        for (const FileNode* above = node; above != nullptr; above = above->parent()) {
            note(*above);
            for (const FileNode* child : node->children())
                if (above == node && child->isDirectory())
                    note(*child);
        }
}

std::string_view BrowserTree::reasonToStay(const FileNode& node) const {
    const auto found = protected_.find(&node);
    return found == protected_.end() ? std::string_view() : found->second;
}

FreedBytes BrowserTree::freedBy(const std::vector<const FileNode*>& nodes,
                                const std::unordered_set<const FileNode*>& deleted) const {
    const std::lock_guard guard(mutex_);
    if (!freed_)
        freed_ = std::make_unique<const FreedSpace>(scan_);
    return freed_->of(nodes, std::vector(deleted.begin(), deleted.end()));
}

CarriedMarks BrowserTree::carried(Marks marks) const {
    CarriedMarks carried{.before = std::move(marks), .now = {}};
    std::vector<const FileNode*> nodes = carried.before.nodes();
    if (!nodes.empty() && &nodes.front()->root() == &root()) {
        carried.now = carried.before;
    } else {
        std::ranges::sort(nodes, std::less<>{}, [](const FileNode* node) { return node->parent(); });
        NodeFinder finder(root());
        for (const FileNode*& node : nodes)
            node = finder.like(*node);
        std::erase(nodes, nullptr);
        carried.now.addAll(nodes);
    }
    for (const FileNode* node : nodes)
        if (!reasonToStay(*node).empty())
            carried.now.remove(*node);
    return carried;
}

} // namespace tarnwell
