#pragma once

// What comes of jobs, as values for the model. `id` is that of the request.

#include "TarnwellCore/Actions/TrashRestorer.hpp"
#include "TarnwellCore/Analysis/DuplicateResult.hpp"
#include "TarnwellCore/Analysis/RuleEvaluator.hpp"
#include "TarnwellCore/Analysis/Search.hpp"
#include "TarnwellCore/Analysis/VolumeLedger.hpp"
#include "TarnwellCore/Layout/TreemapItem.hpp"
#include "TarnwellCore/Scanning/VolumeInfo.hpp"
#include "TarnwellCore/Snapshots/GrowthTrend.hpp"
#include "TarnwellCore/Snapshots/ScanRecord.hpp"
#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"
#include "TarnwellTidyKit/Browser/BrowserJob.hpp"
#include "TarnwellTidyKit/Browser/BrowserTree.hpp"
#include "TarnwellTidyKit/Browser/EarlierSizes.hpp"
#include "TarnwellTidyKit/Browser/Following.hpp"
#include "TarnwellTidyKit/Browser/LiveEntries.hpp"
#include "TarnwellTidyKit/Browser/Ordering.hpp"
#include "TarnwellTidyKit/Commands/ReportFigures.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tarnwell {

/// A finished search of the tree; nodes and totals.
struct FoundItems {
    std::vector<const FileNode*> nodes = {};
    SearchTotals totals = {};
};

/// How a snapshot differs from the tree.
struct ChangesFound {
    SnapshotDelta delta;
    /// Places in the changes of the delta: those that tell the others.
    std::vector<std::size_t> causes;
    std::shared_ptr<const EarlierSizes> earlier;
    /// Which snapshot of how many of this root, from the newest on.
    std::size_t number = 0;
    std::size_t count = 0;
};

struct HistoryFound {
    /// Of this root, oldest first.
    std::vector<ScanRecord> series;
    std::optional<GrowthTrend> trend;
};

/// What the rules of the settings match, or those that were asked for.
struct RulesFound {
    std::vector<CleanupRule> rules;
    std::vector<RuleMatch> matches;
};

namespace BrowserEvents {

struct ScanProgressed {
    std::uint64_t id;
    ScanProgress progress;
    std::shared_ptr<const LiveSource> live;
};
struct ScanEnded {
    std::uint64_t id;
    std::shared_ptr<const BrowserTree> tree;
    /// The full path of the folder that was read again, where everything else is as it was before.
    std::optional<std::string> part = {};
    /// What was marked when it was asked for.
    CarriedMarks marks = {};
    /// The notes for the new tree, where they were made away from the keys, and of how many changes.
    std::optional<FollowedChanges> notes = {};
    std::size_t changeCount = 0;
};
/// Acts on many items are in the books.
struct Followed {
    std::uint64_t id;
    std::shared_ptr<const BrowserTree> tree;
    FollowedChanges changes;
    /// Of how many acts.
    std::size_t changeCount;
};
struct Looked {
    std::uint64_t id;
    /// Null while nothing is known of the folder.
    std::shared_ptr<const BrowserEntries> entries;
    std::shared_ptr<const Ordering> order;
    /// What it took.
    double seconds;
};
struct Ordered {
    std::uint64_t id;
    std::shared_ptr<const Ordering> order;
};
struct Mapped {
    std::uint64_t id;
    std::vector<TreemapItem> tiles;
};
struct Freed {
    std::uint64_t id;
    FreedBytes bytes;
};
struct Figures {
    std::uint64_t id;
    ReportFigures figures;
};
struct Found {
    std::uint64_t id;
    FoundItems items;
};
struct Findings {
    std::uint64_t id;
    std::vector<SpaceSaverFinding> findings;
};
struct Rules {
    std::uint64_t id;
    RulesFound found;
};
/// A change of the rules; all of them as they are stored now.
struct RulesStored {
    std::uint64_t id;
    std::vector<CleanupRule> rules;
};
struct Duplicates {
    std::uint64_t id;
    std::shared_ptr<const DuplicateResult> result;
};
struct Changes {
    std::uint64_t id;
    /// Null when there is no snapshot of this root.
    std::shared_ptr<const ChangesFound> found;
};
struct WaysOutFound {
    std::uint64_t id;
    /// Those that can only be deleted.
    BrowserJobs::TreeItems toDelete;
    std::size_t forTrash = 0;
    /// Those that can neither be moved nor deleted, as far as anybody can tell.
    std::size_t stuck = 0;
};
struct Volumes {
    std::uint64_t id;
    std::vector<VolumeInfo> volumes;
};
struct LedgerMade {
    std::uint64_t id;
    VolumeLedger ledger;
};
struct History {
    std::uint64_t id;
    HistoryFound found;
};
struct TrashListed {
    std::uint64_t id;
    TrashListing listing;
};
/// What became of an act.
struct Acted {
    std::uint64_t id;
    std::string title = {};
    /// Of very many items the failures, and the last ones.
    std::vector<TidyOutcome> outcomes = {};
    /// Of all items.
    std::size_t done = 0;
    std::size_t failed = 0;
    /// Bytes.
    std::int64_t freed = 0;
    /// Null where nothing went and nothing came.
    std::shared_ptr<const FoundChanges> changes = {};
    /// What was stored differs from what views show.
    bool changesTrash = false;
};
/// A line on how far a job is.
struct Progressed {
    std::uint64_t id;
    std::string text;
};
/// The job did not come to an end; empty when it was called off.
struct Failed {
    std::uint64_t id;
    std::string reason;
};

} // namespace BrowserEvents

using BrowserEvent =
    std::variant<BrowserEvents::ScanProgressed, BrowserEvents::ScanEnded, BrowserEvents::Looked,
                 BrowserEvents::LedgerMade, BrowserEvents::Ordered, BrowserEvents::Mapped,
                 BrowserEvents::Freed, BrowserEvents::Figures, BrowserEvents::Found, BrowserEvents::Findings,
                 BrowserEvents::Rules, BrowserEvents::RulesStored, BrowserEvents::Duplicates,
                 BrowserEvents::Changes, BrowserEvents::WaysOutFound, BrowserEvents::Followed,
                 BrowserEvents::Volumes, BrowserEvents::History, BrowserEvents::TrashListed,
                 BrowserEvents::Acted, BrowserEvents::Progressed, BrowserEvents::Failed>;

} // namespace tarnwell
