#include "TarnwellTidyKit/Browser/Following.hpp"

#include "TarnwellCore/Platform/PathNesting.hpp"
#include "TarnwellCore/Scanning/NodeFinder.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace tarnwell {

namespace {

/// The nearest folder of the tree above a path that is not in it.
const FileNode* folderAbove(std::string_view path, const FileNode& root, NodeFinder& finder) {
    const std::size_t rootLength = root.path().size();
    while (path.size() > rootLength) {
        path = path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
        if (const FileNode* folder = finder.find(path))
            return folder;
    }
    return &root;
}

const FileNode* unreadFolder(const auto& back, const FileNode& root, NodeFinder& finder) {
    const FileNode* unread = nullptr;
    const std::string rootPath = root.path();
    for (const std::string_view path : back)
        if (isAtOrBelow(path, rootPath) && finder.find(path) == nullptr)
            unread = commonFolder(unread, folderAbove(path, root, finder));
    return unread;
}

void takeOffWhatIsGone(Marks& marks, const Removals& removals) {
    if (marks.isEmpty() || removals.isEmpty())
        return;
    RemovedNodesQuery gone(removals.nodes());
    for (const FileNode* node : marks.nodes())
        if (gone.containsNodeOrAncestor(*node)) // perhaps because a folder above it went
            marks.remove(*node);
}

} // namespace

ChangedNodes ChangedNodes::of(const ItemChanges& changes, std::shared_ptr<const BrowserTree> tree) {
    ChangedNodes nodes{.tree = std::move(tree)};
    if (nodes.tree == nullptr || changes.count() == 0)
        return nodes;
    NodeFinder finder(nodes.tree->root());
    const auto find = [&](const std::vector<std::string>& paths, std::vector<const FileNode*>& found) {
        for (const std::string& path : paths)
            if (const FileNode* node = finder.find(path))
                found.push_back(node);
    };
    find(changes.gone, nodes.gone);
    find(changes.back, nodes.back);
    nodes.unread = unreadFolder(changes.back, nodes.tree->root(), finder);
    return nodes;
}

std::size_t countOf(const ChangeList& changes) {
    std::size_t count = 0;
    for (const auto& each : changes)
        count += each->items.count();
    return count;
}

bool TreeNotes::areMany() const {
    return marks.count() > fewItems || removals->all().size() > fewItems;
}

FollowedChanges followed(const std::shared_ptr<const BrowserTree>& tree, TreeNotes notes,
                         const ChangeList& changes, const FileNode* folder) {
    FollowedChanges result{.before = std::move(notes), .now = {}};
    auto removals = std::make_shared<Removals>(*result.before.removals);
    for (const auto& each : changes) {
        ChangedNodes foundHere;
        const bool isOfTree = each->nodes.tree == tree;
        if (!isOfTree)
            foundHere = ChangedNodes::of(each->items, tree);
        const ChangedNodes& nodes = isOfTree ? each->nodes : foundHere;
        for (const FileNode* node : nodes.gone)
            removals->note(*node, each->items.isForGood);
        for (const FileNode* node : nodes.back) {
            removals->restore(*node);
            if (node->parent() == folder)
                result.lastBack = node;
        }
        result.isAnythingBack |= !each->items.back.empty();
        result.unread = commonFolder(result.unread, nodes.unread);
    }
    result.now = {.removals = std::move(removals), .marks = result.before.marks};
    takeOffWhatIsGone(result.now.marks, *result.now.removals);
    return result;
}

FollowedChanges carried(const std::shared_ptr<const BrowserTree>& tree, TreeNotes notes,
                        const std::optional<std::string>& part, const ReadingChanges& changes,
                        const CarriedMarks& marks) {
    FollowedChanges result{.before = std::move(notes), .now = {}};
    NodeFinder finder(tree->root());
    auto removals = std::make_shared<Removals>();
    // What had gone before: where it was read again, it shows by itself whether it is there.
    const Removals& before = *result.before.removals;
    if (part)
        for (const FileNode* gone : before.all())
            if (const std::string path = gone->path(); !isAtOrBelow(path, *part))
                if (const FileNode* node = finder.find(path))
                    removals->note(*node, before.forGood().contains(gone));
    std::unordered_map<std::string_view, bool> goneForGood;
    std::unordered_set<std::string_view> back;
    for (const auto& each : changes.before)
        back.insert(each->items.back.begin(), each->items.back.end());
    for (const auto& each : changes.since) {
        for (const std::string& path : each->items.back)
            goneForGood.erase(path);
        for (const std::string& path : each->items.gone) {
            back.erase(path);
            goneForGood[path] = each->items.isForGood;
        }
        back.insert(each->items.back.begin(), each->items.back.end());
    }
    for (const auto& [path, isForGood] : goneForGood)
        if (const FileNode* node = finder.find(path))
            removals->note(*node, isForGood);
    result.unread = unreadFolder(back, tree->root(), finder);
    result.now.removals = std::move(removals);
    result.now.marks =
        marks.before == result.before.marks ? marks.now : tree->carried(result.before.marks).now;
    takeOffWhatIsGone(result.now.marks, *result.now.removals);
    return result;
}

} // namespace tarnwell
