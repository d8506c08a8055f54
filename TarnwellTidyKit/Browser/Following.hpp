#pragma once

// How what the browser knows beside a tree follows acts and new scans: what has gone, and what is marked.
// Done at once for a few items, away from the keys for many.

#include "TarnwellTidyKit/Browser/BrowserTree.hpp"
#include "TarnwellTidyKit/Browser/Marks.hpp"
#include "TarnwellTidyKit/Browser/Removals.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// What an act took away and what it brought back.
struct ItemChanges {
    /// Full paths.
    std::vector<std::string> gone = {};
    std::vector<std::string> back = {};
    /// Whether what is gone lies in no Trash.
    bool isForGood = false;

    std::size_t count() const { return gone.size() + back.size(); }
};

/// The items of changes as one tree has them.
struct ChangedNodes {
    std::shared_ptr<const BrowserTree> tree;
    std::vector<const FileNode*> gone = {};
    std::vector<const FileNode*> back = {};
    /// The nearest folder that holds all that is back and is not in the tree; null for none.
    const FileNode* unread = nullptr;

    static ChangedNodes of(const ItemChanges& changes, std::shared_ptr<const BrowserTree> tree);
};

/// What an act changed, with the nodes of the tree that was shown when it began, if there was one.
struct FoundChanges {
    ItemChanges items = {};
    ChangedNodes nodes = {};
};
/// In the order in which they happened.
using ChangeList = std::vector<std::shared_ptr<const FoundChanges>>;

std::size_t countOf(const ChangeList& changes);

/// What changed while a scan reads.
struct ReadingChanges {
    ChangeList since = {};
    /// Since earlier scans that were given up: what came back then may still be missed.
    ChangeList before = {};

    /// Of acts.
    std::size_t count() const { return since.size() + before.size(); }
};

/// Up to here things are done on the spot: a millisecond's work.
inline constexpr std::size_t fewItems = 500;

/// What is known beside a tree.
struct TreeNotes {
    std::shared_ptr<const Removals> removals;
    Marks marks;

    /// Whether it takes longer than a key may wait to make them anew.
    bool areMany() const;
    bool areSame(const TreeNotes& other) const { return removals == other.removals && marks == other.marks; }
};

/// What comes of changes: the notes that they were made of, and those that hold now.
struct FollowedChanges {
    TreeNotes before;
    TreeNotes now;
    /// What came back last of the entries of the folder where one stood.
    const FileNode* lastBack = nullptr;
    bool isAnythingBack = false;
    /// As in ChangedNodes.
    const FileNode* unread = nullptr;
};
FollowedChanges followed(const std::shared_ptr<const BrowserTree>& tree, TreeNotes notes,
                         const ChangeList& changes, const FileNode* folder);

/// What of the notes holds for a new tree. `part` is the full path of the folder that was read again, where
/// only that was. `marks` were carried already, perhaps of other notes.
FollowedChanges carried(const std::shared_ptr<const BrowserTree>& tree, TreeNotes notes,
                        const std::optional<std::string>& part, const ReadingChanges& changes,
                        const CarriedMarks& marks);

} // namespace tarnwell
