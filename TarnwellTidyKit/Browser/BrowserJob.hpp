#pragma once

// What takes time, as values: the model asks for it, the work queue does it, and what comes of it is an event
// (BrowserEvent.hpp). Trees, entries and sets that a job names do not change while it is done.

#include "TarnwellCore/Actions/BlockSharing.hpp"
#include "TarnwellCore/Analysis/CleanupRule.hpp"
#include "TarnwellCore/Analysis/DuplicateOptions.hpp"
#include "TarnwellCore/Analysis/SearchConditions.hpp"
#include "TarnwellCore/Analysis/SpaceSaverFinding.hpp"
#include "TarnwellCore/Scanning/ScanOptions.hpp"
#include "TarnwellTidyKit/Browser/BrowserMemory.hpp"
#include "TarnwellTidyKit/Browser/BrowserTree.hpp"
#include "TarnwellTidyKit/Browser/Following.hpp"
#include "TarnwellTidyKit/Browser/LiveEntries.hpp"
#include "TarnwellTidyKit/Browser/Marks.hpp"
#include "TarnwellTidyKit/Browser/Ordering.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tarnwell {

/// What has a thread of its own: jobs of one lane are done one after another.
enum class BrowserLane : std::uint8_t {
    quick,  ///< what a key waits for: orders, sums of what is marked
    look,   ///< scans and searches
    act,    ///< whatever changes something; steps are never cut in two
    upkeep, ///< what takes moments and nobody asked for: the books of large acts, taking things apart
    wayOut  ///< whether there is a Trash, which a server that does not answer may hold up
};
inline constexpr std::size_t browserLaneCount = 5;

namespace BrowserJobs {

/// Items of a tree. There may be a million, whose paths are made where they are acted on.
struct TreeItems {
    std::shared_ptr<const BrowserTree> tree;
    std::vector<const FileNode*> nodes;
};

// --- Looking ------------------------------------------------------------------------------------------

struct Scan {
    std::string folder;
};
/// Reads one folder of a scan again, in place.
struct Rescan {
    std::shared_ptr<const BrowserTree> tree;
    const FileNode* folder;
    /// To be found in the new tree.
    Marks marks;
};
/// What a scan under way has of a folder, in its order. Takes the time of what was read since the last look,
/// and may have to wait for the scan: no key does that.
struct Look {
    std::shared_ptr<const LiveSource> live;
    /// Null for the root.
    const FileNode* folder;
    OrderingChoice choice;
};
struct Order {
    std::shared_ptr<const BrowserEntries> entries;
    OrderingChoice choice;
    std::string place;
};
/// The tiles of a folder.
struct Map {
    std::shared_ptr<const BrowserTree> tree;
    const FileNode* folder;
    std::shared_ptr<const Removals> removals;
    SizeMode mode;
    double width;
    double height;
};
struct Freed {
    std::shared_ptr<const BrowserTree> tree;
    Marks marks;
    std::shared_ptr<const Removals> removals;
};
struct Figures {
    std::shared_ptr<const BrowserTree> tree;
    const FileNode* folder;
    std::shared_ptr<const Removals> removals;
    SizeMode mode;
};
struct Find {
    std::shared_ptr<const BrowserTree> tree;
    const FileNode* folder;
    SearchConditions conditions;
    std::shared_ptr<const Removals> removals;
};
struct Findings {
    std::shared_ptr<const BrowserTree> tree;
    std::shared_ptr<const Removals> removals;
    /// Empty: those of the settings.
    std::optional<std::vector<CleanupRule>> rules;
};
struct Rules {
    std::shared_ptr<const BrowserTree> tree;
    std::shared_ptr<const Removals> removals;
    /// Empty: those of the settings.
    std::optional<std::vector<CleanupRule>> rules;
};
struct Duplicates {
    std::shared_ptr<const BrowserTree> tree;
    const FileNode* folder;
};
struct Changes {
    std::shared_ptr<const BrowserTree> tree;
    std::shared_ptr<const Removals> removals;
    SizeMode mode;
    /// Which of the root's snapshots, from the newest on.
    std::size_t number;
};
/// Which of the items have no Trash.
struct FindWaysOut {
    TreeItems items;
};
struct Volumes {};
struct Ledger {
    std::shared_ptr<const BrowserTree> tree;
    std::shared_ptr<const Removals> removals;
};
/// Lets go of what is not looked at any more: a tree of a million nodes takes its time.
struct Discard {
    std::vector<std::shared_ptr<const void>> things;
};
/// What acts on many items have changed.
struct Follow {
    std::shared_ptr<const BrowserTree> tree;
    TreeNotes notes;
    ChangeList changes;
    /// Where one stands.
    const FileNode* folder;
};
/// Takes many notes over into a new tree.
struct Carry {
    std::shared_ptr<const BrowserTree> tree;
    std::optional<std::string> part;
    TreeNotes notes;
    ReadingChanges changes;
    CarriedMarks marks;
    /// The one that the notes are about.
    std::shared_ptr<const BrowserTree> from;
};
struct History {
    std::string root;
};
struct TrashList {};

// --- Acting -------------------------------------------------------------------------------------------

struct Trash {
    TreeItems items;
};
struct Undo {
    /// The one that is shown; null for none.
    std::shared_ptr<const BrowserTree> tree;
};
struct Restore {
    std::vector<std::string> locations;
    std::shared_ptr<const BrowserTree> tree;
};
/// Deletes for good, but nothing that can go to a Trash.
struct Remove {
    TreeItems items;
};
/// Of files in the cloud's folders, in and below the items, the local copies.
struct Evict {
    TreeItems items;
    std::shared_ptr<const Removals> removals;
};
struct Share {
    std::vector<SharingRequest> groups;
};
struct Clear {
    SpaceSaverFinding finding;
    std::shared_ptr<const BrowserTree> tree;
};
struct EmptyTrash {};
struct TakeSnapshot {
    std::shared_ptr<const BrowserTree> tree;
    std::shared_ptr<const Removals> removals;
};
/// One change of the user's rules. Others may have changed the rest meanwhile: that stays as they left it.
struct ChangeRules {
    enum class Kind : std::uint8_t { put, enable, disable, drop };
    Kind kind = Kind::put;
    /// With the ID of the one that it takes the place of; of another it is a new one.
    CleanupRule rule;

    void applyTo(std::vector<CleanupRule>& rules) const;
};
struct Open {
    std::string path;
};
struct Reveal {
    std::string path;
};
struct Remember {
    BrowserMemory memory;
};

} // namespace BrowserJobs

using BrowserJob =
    std::variant<BrowserJobs::Scan, BrowserJobs::Rescan, BrowserJobs::Look, BrowserJobs::Ledger,
                 BrowserJobs::Discard, BrowserJobs::Order, BrowserJobs::Map, BrowserJobs::Freed,
                 BrowserJobs::Figures, BrowserJobs::Find, BrowserJobs::Findings, BrowserJobs::Rules,
                 BrowserJobs::Duplicates, BrowserJobs::Changes, BrowserJobs::FindWaysOut, BrowserJobs::Follow,
                 BrowserJobs::Carry, BrowserJobs::Volumes, BrowserJobs::History, BrowserJobs::TrashList,
                 BrowserJobs::Trash, BrowserJobs::Undo, BrowserJobs::Restore, BrowserJobs::Remove,
                 BrowserJobs::Evict, BrowserJobs::Share, BrowserJobs::Clear, BrowserJobs::EmptyTrash,
                 BrowserJobs::TakeSnapshot, BrowserJobs::ChangeRules, BrowserJobs::Open, BrowserJobs::Reveal,
                 BrowserJobs::Remember>;

BrowserLane laneOf(const BrowserJob& job);
/// What people call it while it runs; empty for what is over before anyone could read it.
std::string_view titleOf(const BrowserJob& job);

/// What the model wants done, one after another.
struct BrowserRequest {
    std::uint64_t id = 0;
    BrowserJob job;
};

} // namespace tarnwell
