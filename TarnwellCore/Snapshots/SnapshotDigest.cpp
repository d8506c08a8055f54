#include "TarnwellCore/Snapshots/SnapshotDigest.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace tarnwell {

namespace {

using Change = SnapshotDelta::Change;
using Cause = SnapshotDigest::Cause;
using Folder = SnapshotDigest::Folder;

/// How much of a folder's change its parts have to show to stand in its place.
constexpr double tellingShare = 0.8;

/// Lengths of paths: of a path only beginnings of these are looked up, so that one of nothing but slashes
/// costs little.
class PathLengths {
public:
    void note(std::size_t length) {
        if (noted_.size() <= length)
            noted_.resize(length + 1);
        noted_[length] = true;
    }

    /// The nearest folder above, of those that `contains` tells; nothing when there is none below the root.
    template <class Contains>
    std::optional<std::string_view> folderAbove(std::string_view path, Contains contains) const {
        for (std::size_t end = path.rfind('/'); end != path.npos && end > 0; end = path.rfind('/', end - 1))
            if (end < noted_.size() && noted_[end] && contains(path.substr(0, end)))
                return path.substr(0, end);
        return std::nullopt;
    }

private:
    std::vector<bool> noted_;
};

/// The changes as a tree: below each, those of the items in it that have no other change between.
class ChangeTree {
public:
    struct Node {
        const Change* change = nullptr; // null for a root that did not change
        std::vector<const Node*> parts; // largest change first

        double size() const { return change != nullptr ? static_cast<double>(magnitude(change->delta)) : 0; }
    };

    /// The changes must outlive this; they come largest first.
    explicit ChangeTree(const std::vector<Change>& changes) {
        nodes_.reserve(changes.size());
        for (const Change& change : changes) {
            nodes_[change.path].change = &change;
            lengths_.note(change.path.size());
        }
        // Linked in the order of the changes, so that parts are in it as well.
        for (const Change& change : changes)
            if (!change.path.empty())
                above(change.path).parts.push_back(&nodes_[change.path]);
    }

    const Node& root() const { return *root_; }

private:
    Node& above(std::string_view path) {
        const auto folder =
            lengths_.folderAbove(path, [this](std::string_view each) { return nodes_.contains(each); });
        return folder ? nodes_.find(*folder)->second : *root_;
    }

    std::unordered_map<std::string_view, Node> nodes_;
    PathLengths lengths_;
    Node* const root_ = &nodes_[{}];
};

using Node = ChangeTree::Node;

/// Whether the folder gives way to what is in it: one part tells the change as well, or the folder hides it.
/// What came or went is told as a whole.
bool givesWay(const Node& node) {
    const bool isWhole =
        node.change->kind == Change::Kind::added || node.change->kind == Change::Kind::removed;
    return !isWhole && !node.parts.empty() && node.parts.front()->size() >= tellingShare * node.size();
}

/// Adds what tells a change best: itself or what is in it.
void addCauses(const Node& top, std::vector<const Node*>& causes) {
    std::vector<const Node*> pending{&top};
    while (!pending.empty()) {
        const Node* const node = pending.back();
        pending.pop_back();
        if (givesWay(*node))
            pending.insert(pending.end(), node->parts.begin(), node->parts.end());
        else
            causes.push_back(node);
    }
}

/// What tells a folder's change together, where two or three of its parts do; nothing otherwise.
std::vector<const Node*> causesIn(const Node& node) {
    constexpr std::size_t mostParts = 3;
    std::vector<const Node*> causes;
    double told = 0;
    const bool isWhole =
        node.change->kind == Change::Kind::added || node.change->kind == Change::Kind::removed;
    for (std::size_t index = 0; !isWhole && index < std::min(node.parts.size(), mostParts); ++index) {
        const Node& part = *node.parts[index];
        if ((part.change->delta > 0) != (node.change->delta > 0))
            break;
        addCauses(part, causes);
        told += part.size();
        if (told >= tellingShare * node.size())
            return causes;
    }
    return {};
}

void sortBySize(std::vector<const Node*>& nodes) {
    std::ranges::sort(nodes, [](const Node* a, const Node* b) {
        return a->size() != b->size() ? a->size() > b->size() : a->change->path < b->change->path;
    });
}

std::vector<const Node*> largestCauses(const Node& root) {
    std::vector<const Node*> causes;
    // The root's own change is the net change.
    for (const Node* part : root.parts)
        addCauses(*part, causes);
    sortBySize(causes);
    causes.resize(std::min(causes.size(), SnapshotDigest::mostItems));
    for (std::size_t index = 0; index < causes.size();) {
        const std::vector<const Node*> parts = causesIn(*causes[index]);
        if (parts.empty() || causes.size() - 1 + parts.size() > SnapshotDigest::mostItems) {
            ++index;
            continue;
        }
        causes.erase(causes.begin() + static_cast<std::ptrdiff_t>(index));
        causes.insert(causes.end(), parts.begin(), parts.end());
        sortBySize(causes);
        index = 0;
    }
    return causes;
}

std::unordered_set<std::string_view> foldersOf(const ScanSnapshot& snapshot) {
    std::unordered_set<std::string_view> folders;
    for (const ScanSnapshot::Entry& entry : snapshot.entries)
        if (entry.isDirectory)
            folders.insert(entry.path);
    return folders;
}

/// Folders of this kind of change, those in another of them left out.
std::vector<Folder> topFolders(const std::vector<Change>& changes, Change::Kind kind,
                               const std::unordered_set<std::string_view>& isFolder) {
    std::unordered_set<std::string_view> all;
    PathLengths lengths;
    for (const Change& change : changes)
        if (change.kind == kind && !change.path.empty() && isFolder.contains(change.path)) {
            all.insert(change.path);
            lengths.note(change.path.size());
        }
    const auto isOne = [&](std::string_view path) { return all.contains(path); };
    std::vector<Folder> folders;
    for (const Change& change : changes) { // largest first
        if (folders.size() == SnapshotDigest::mostItems)
            break;
        if (isOne(change.path) && !lengths.folderAbove(change.path, isOne))
            folders.push_back({change.path, std::max(change.before, change.after)});
    }
    return folders;
}

std::vector<SnapshotDigest::CategoryChange> categoryChanges(const ScanRecord& before,
                                                            const ScanRecord& after) {
    std::vector<SnapshotDigest::CategoryChange> changes;
    if (before.categories.empty() || after.categories.empty())
        return changes;
    for (const FileCategory category : allFileCategories()) {
        const auto sizeIn = [&](const ScanRecord& record) {
            const auto found = record.categories.find(category);
            return found != record.categories.end() ? found->second : 0;
        };
        if (sizeIn(before) != sizeIn(after))
            changes.push_back({category, sizeIn(before), sizeIn(after)});
    }
    // As doubles: what a foreign file says may be anything.
    std::ranges::stable_sort(changes, std::greater(), [](const auto& change) {
        return std::abs(static_cast<double>(change.after) - static_cast<double>(change.before));
    });
    return changes;
}

} // namespace

SnapshotDigest SnapshotDigest::of(const ScanSnapshot& before, const ScanSnapshot& after,
                                  const ScanRecord* recordBefore, const ScanRecord* recordAfter,
                                  std::int64_t smallest) {
    const SnapshotDelta delta =
        SnapshotDelta::compare(before, after, std::max<std::int64_t>(smallest, 1), SizeMode::allocated);
    const auto foldersBefore = foldersOf(delta.before);
    const auto foldersAfter = foldersOf(delta.after);
    SnapshotDigest digest;
    digest.from = before.createdAt;
    digest.to = after.createdAt;
    digest.rootPath = after.rootPath;
    digest.rootsMatch = delta.rootsMatch;
    digest.sizeBefore = before.totalAllocatedSize;
    digest.sizeAfter = after.totalAllocatedSize;
    digest.netChange = delta.totalChange;
    const ChangeTree tree(delta.changes);
    for (const Node* node : largestCauses(tree.root())) {
        const Change& change = *node->change;
        digest.causes.push_back(
            {.path = change.path,
             .kind = change.kind,
             .before = change.before,
             .after = change.after,
             .change = change.delta,
             .isDirectory = foldersAfter.contains(change.path) || foldersBefore.contains(change.path)});
    }
    digest.newFolders = topFolders(delta.changes, Change::Kind::added, foldersAfter);
    digest.goneFolders = topFolders(delta.changes, Change::Kind::removed, foldersBefore);
    if (recordBefore != nullptr && recordAfter != nullptr)
        digest.categories = categoryChanges(*recordBefore, *recordAfter);
    if (recordBefore != nullptr)
        digest.spaceBefore = recordBefore->volume;
    if (recordAfter != nullptr)
        digest.spaceAfter = recordAfter->volume;
    return digest;
}

} // namespace tarnwell
