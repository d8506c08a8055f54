#include "TarnwellCore/Scanning/NodeFinder.hpp"

#include "TarnwellCore/Platform/NameForms.hpp"
#include "TarnwellCore/Platform/PathNesting.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <algorithm>

namespace tarnwell {

const FileNode* NodeFinder::find(std::string_view path) {
    std::string_view rest = path;
    if (rest.starts_with('/')) {
        if (!isAtOrBelow(rest, rootPath_))
            return root_.node(path); // the root may be spelt in another way
        rest.remove_prefix(rootPath_.size());
    }
    const FileNode* node = &root_;
    while (node != nullptr && !rest.empty()) {
        const auto slash = std::min(rest.find('/'), rest.size());
        if (slash > 0)
            node = child(*node, rest.substr(0, slash));
        rest.remove_prefix(std::min(slash + 1, rest.size()));
    }
    return node;
}

const FileNode* NodeFinder::like(const FileNode& node) {
    way_.clear();
    const FileNode* root = &node;
    for (; root->parent() != nullptr; root = root->parent())
        way_.push_back(root);
    if (root == &root_)
        return &node;
    if (root != sameRoot_) {
        if (root->path() != rootPath_)
            return find(node.path());
        sameRoot_ = root;
    }
    const FileNode* found = &root_;
    for (auto each = way_.rbegin(); each != way_.rend() && found != nullptr; ++each)
        found = childLike(*found, **each);
    return found;
}

/// Children stand in an order, in which one that has kept its size has its place.
const FileNode* NodeFinder::childLike(const FileNode& folder, const FileNode& other) {
    const auto children = folder.children();
    const auto place = std::ranges::lower_bound(
        children, other, [](const FileNode& a, const FileNode& b) { return NodeSorter::precedes(a, b); },
        [](const FileNode* each) -> const FileNode& { return *each; });
    if (place != children.end() && (*place)->name() == other.name())
        return *place;
    return child(folder, other.name());
}

const FileNode* NodeFinder::child(const FileNode& folder, std::string_view name) {
    constexpr std::size_t small = 32; // entries
    if (mayHaveOtherForms(name))
        return folder.node(name);
    const auto children = folder.children();
    // Names that are asked for once are not worth learning.
    if (children.size() <= small || asked_.insert(&folder).second) {
        const auto found = std::ranges::find(children, name, &FileNode::name);
        return found == children.end() ? nullptr : *found;
    }
    Names& names = names_[&folder];
    if (names.empty()) {
        names.reserve(children.size());
        for (const FileNode* each : children)
            names.emplace(each->name(), each);
    }
    const auto found = names.find(name);
    return found == names.end() ? nullptr : found->second;
}

} // namespace tarnwell
