#include "TarnwellCore/Scanning/NodeFinder.hpp"

#include "TarnwellCore/Platform/NameForms.hpp"
#include "TarnwellCore/Platform/PathNesting.hpp"

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
