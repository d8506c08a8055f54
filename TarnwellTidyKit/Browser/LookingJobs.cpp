#include "TarnwellCore/Layout/TreemapLayout.hpp"
#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellTidyKit/Browser/JobRunner.hpp"
#include "TarnwellTidyKit/Browser/LiveTreeSource.hpp"
#include "TarnwellTidyKit/Commands/SnapshotCauses.hpp"
#include "TarnwellTidyKit/Commands/StoredSnapshot.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

void leaveOut(const Removals& removals, RuleMatch& match) {
    RemovedNodesQuery removed(removals.nodes());
    std::erase_if(match.nodes, [&](const FileNode* node) { return removed.containsNodeOrAncestor(*node); });
    match.itemCount = static_cast<std::int64_t>(match.nodes.size());
    match.totalSize = match.reclaimableSize = 0;
    for (const FileNode* node : match.nodes) {
        const Removals::Sums rest = removals.restOf(*node);
        match.totalSize += rest.size;
        match.reclaimableSize += rest.reclaimableSize;
    }
}

std::vector<CleanupRule> rulesOf(const AppSettings& settings) {
    return settings.cleanupRules().value_or(CleanupRule::presets());
}

/// What the folders themselves take is known after whole scans only, and hardly changes between them.
void keepFolderBytes(ScanResult& result, const BrowserTree& before) {
    if (!result.folderBytes)
        result.folderBytes = before.scan().folderBytes;
}

} // namespace

ScanResult scanNow(const BrowserTree& tree, const Removals& removals, const CancellationToken& token) {
    const FileNode* place = removals.place();
    if (place == nullptr)
        return tree.scan();
    ScanResult result = DiskScanner().rescan(tree.scan(), *place, nullptr, token).get();
    keepFolderBytes(result, tree);
    return result;
}

namespace {

/// Tells of a scan soon after its start, when there are the first rows to see, and then less and less often.
class ScanReports {
public:
    static constexpr double first = 0.02; // seconds

    explicit ScanReports(std::function<void(const ScanProgress&)> post) : post_(std::move(post)) {}
    void operator()(const ScanProgress& progress) {
        constexpr double longest = 0.1;
        if (progress.elapsed < due_)
            return;
        due_ = progress.elapsed + pause_;
        pause_ = std::min(pause_ * 2, longest);
        post_(progress);
    }

private:
    std::function<void(const ScanProgress&)> post_;
    double due_ = 0;
    double pause_ = first;
};

void noteScan(const JobContext& context, const ScanResult& scan) {
    if (context.isReadOnly)
        return;
    try {
        context.services.history().note(ScanRecord::of(
            scan, context.services.volumeContaining(scan.root->url()), context.services.now()));
    } catch (const std::exception&) {
        // A history that cannot be written now misses a scan; nobody is to be bothered with that.
    }
}

} // namespace

void LookingJobs::operator()(const BrowserJobs::Scan& job) const {
    TidyContext commands(context.services, context.surroundings);
    ScanOptions options = commands.scanOptions(context.choices);
    options.progressInterval = ScanReports::first;
    const auto live = std::make_shared<LiveTree>();
    ScanResult result = [&] {
        ScanReports report(
            [this, source = std::make_shared<const LiveTreeSource>(live)](const auto& progress) {
                context.post(BrowserEvents::ScanProgressed{context.id, progress, source});
            });
        if (context.scan)
            return context.scan(job.folder, options, report, context.token, live);
        return DiskScanner().scan(job.folder, options, report, context.token, live).get();
    }();
    auto tree = std::make_shared<const BrowserTree>(std::move(result), context.services.home());
    context.post(BrowserEvents::ScanEnded{context.id, tree});
    noteScan(context, tree->scan());
}

void LookingJobs::operator()(const BrowserJobs::Rescan& job) const {
    const std::string folder = job.folder->path();
    ScanResult result =
        DiskScanner()
            .rescan(job.tree->scan(), *job.folder, ScanReports([this](const ScanProgress& progress) {
                        context.post(BrowserEvents::ScanProgressed{context.id, progress, nullptr});
                    }),
                    context.token)
            .get();
    // Where everything had to be read, what the folders themselves take is known.
    const bool isWhole = result.folderBytes.has_value();
    keepFolderBytes(result, *job.tree);
    auto tree = std::make_shared<const BrowserTree>(std::move(result), context.services.home());
    context.post(BrowserEvents::ScanEnded{context.id, tree, isWhole ? std::nullopt : std::optional(folder),
                                          tree->carried(job.marks)});
    if (isWhole)
        noteScan(context, tree->scan());
}

void LookingJobs::operator()(const BrowserJobs::Look& job) const {
    const auto begin = std::chrono::steady_clock::now();
    std::shared_ptr<const BrowserEntries> entries = job.live->look(job.folder);
    std::shared_ptr<const Ordering> order;
    if (context.token.isCancelled())
        return;
    if (entries)
        order = std::make_shared<const Ordering>(ordered(*entries, job.choice, {}, context.token));
    if (context.token.isCancelled())
        return;
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    context.post(BrowserEvents::Looked{context.id, std::move(entries), std::move(order), time.count()});
}

void LookingJobs::operator()(const BrowserJobs::Ledger& job) const {
    const ScanResult scan = scanNow(*job.tree, *job.removals, context.token);
    context.post(BrowserEvents::LedgerMade{context.id, context.services.ledger(scan, context.token)});
}

void LookingJobs::operator()(const BrowserJobs::Discard&) const {
    // The request holds them, and goes when this is done.
}

void LookingJobs::operator()(const BrowserJobs::Follow& job) const {
    context.post(BrowserEvents::Followed{
        context.id, job.tree, followed(job.tree, job.notes, job.changes, job.folder), job.changes.size()});
}

void LookingJobs::operator()(const BrowserJobs::Carry& job) const {
    context.post(BrowserEvents::ScanEnded{context.id, job.tree, job.part, job.marks,
                                          carried(job.tree, job.notes, job.part, job.changes, job.marks),
                                          job.changes.count()});
}

void LookingJobs::operator()(const BrowserJobs::Order& job) const {
    auto order =
        std::make_shared<const Ordering>(ordered(*job.entries, job.choice, job.place, context.token));
    if (!context.token.isCancelled())
        context.post(BrowserEvents::Ordered{context.id, std::move(order)});
}

void LookingJobs::operator()(const BrowserJobs::Map& job) const {
    const TreemapConfiguration configuration{.padding = 0,
                                             .headerHeight = 0,
                                             .inset = 0,
                                             .minimumArea = 2,
                                             .minimumSideForRecursion = 5,
                                             .maximumDepth = 4,
                                             .sizeMode = job.mode};
    context.post(BrowserEvents::Mapped{context.id,
                                       TreemapLayout::layout(*job.folder, Rect(0, 0, job.width, job.height),
                                                             configuration, job.removals->nodes())});
}

void LookingJobs::operator()(const BrowserJobs::Freed& job) const {
    std::vector<const FileNode*> nodes = job.marks.nodes();
    if (!job.removals->isEmpty())
        nodes = job.removals->remaining(nodes);
    context.post(BrowserEvents::Freed{context.id, job.tree->freedBy(nodes, job.removals->forGood())});
}

void LookingJobs::operator()(const BrowserJobs::Figures& job) const {
    constexpr std::size_t largest = 1000;
    context.post(
        BrowserEvents::Figures{context.id, ReportFigures::of(*job.folder, job.mode, largest,
                                                             context.services.now(), job.removals->nodes())});
}

void LookingJobs::operator()(const BrowserJobs::Find& job) const {
    constexpr std::size_t most = 100'000;
    SizesOfNode rest;
    if (!job.removals->isEmpty())
        rest = [&](const FileNode& node) -> std::optional<NodeSizes> {
            if (job.removals->isGone(node))
                return std::nullopt;
            const Removals::Sums sums = job.removals->restOf(node);
            return NodeSizes{sums.size, sums.allocatedSize, sums.reclaimableSize};
        };
    LargestMatches matches; // none where the folder itself has gone
    if (!job.removals->isGoneWithItsFolders(*job.folder))
        matches = Search::largest(*job.folder, job.conditions, most, context.token, rest);
    context.post(BrowserEvents::Found{context.id, {std::move(matches.nodes), matches.totals}});
}

void LookingJobs::operator()(const BrowserJobs::Findings& job) const {
    SpaceSaverProbe::Request request;
    request.now = context.services.now();
    const AppSettings settings(context.services.settings());
    request.rules = job.rules ? *job.rules : rulesOf(settings);
    request.largeFileThreshold = std::max<std::int64_t>(settings.largeFileThresholdBytes(), 0);
    const fs::path home = context.services.home();
    // A scan of the home, or of what holds it, tells more than known places.
    if (job.tree->root().node(DiskScanner::normalize(home)) != nullptr)
        request.scanResult = scanNow(*job.tree, *job.removals, context.token);
    context.post(BrowserEvents::Findings{
        context.id, context.services.findings(home, std::move(request), context.token).get()});
}

void LookingJobs::operator()(const BrowserJobs::Rules& job) const {
    RulesFound found;
    found.rules = job.rules ? *job.rules : rulesOf(AppSettings(context.services.settings()));
    found.matches = RuleEvaluator::evaluate(found.rules, job.tree->root(), context.services.now(),
                                            context.services.home().native(), context.token);
    if (!job.removals->isEmpty()) {
        for (RuleMatch& match : found.matches)
            leaveOut(*job.removals, match);
        std::erase_if(found.matches, [](const RuleMatch& match) { return match.nodes.empty(); });
    }
    context.post(BrowserEvents::Rules{context.id, std::move(found)});
}

void LookingJobs::operator()(const BrowserJobs::Duplicates& job) const {
    DuplicateOptions options = AppSettings(context.services.settings()).duplicateOptions();
    const std::shared_ptr<const FileNode> root(job.tree, job.folder);
    DuplicateResult result =
        context.services
            .findDuplicates(
                {root}, options,
                [&](const DuplicateProgress& progress) {
                    context.post(BrowserEvents::Progressed{
                        context.id, sizeText(progress.bytesRead) + " of " + sizeText(progress.bytesToRead) +
                                        " read, " + countedText(progress.groupCount, "group", "groups")});
                },
                context.token)
            .get();
    context.post(
        BrowserEvents::Duplicates{context.id, std::make_shared<const DuplicateResult>(std::move(result))});
}

void LookingJobs::operator()(const BrowserJobs::Changes& job) const {
    std::vector<ScanSnapshot> snapshots = context.services.snapshotStore()->list();
    const std::string root = job.tree->root().path();
    std::erase_if(snapshots, [&](const ScanSnapshot& snapshot) { return snapshot.rootPath != root; });
    std::shared_ptr<ChangesFound> found;
    if (job.number < snapshots.size()) {
        found = std::make_shared<ChangesFound>();
        found->number = job.number;
        found->count = snapshots.size();
        found->earlier = std::make_shared<const EarlierSizes>(snapshots[job.number]);
        found->delta = SnapshotDelta::compare(
            std::move(snapshots[job.number]),
            storedSnapshotOf(scanNow(*job.tree, *job.removals, context.token)), 1, job.mode);
        for (const SnapshotDelta::Change* change : snapshotCauses(found->delta))
            found->causes.push_back(static_cast<std::size_t>(change - found->delta.changes.data()));
    }
    context.post(BrowserEvents::Changes{context.id, std::move(found)});
}

void LookingJobs::operator()(const BrowserJobs::FindWaysOut& job) const {
    BrowserEvents::WaysOutFound found{.id = context.id, .toDelete = {job.items.tree, {}}};
    WaysOut waysOut(context.services);
    for (const FileNode* node : job.items.nodes) {
        if (context.token.isCancelled())
            return;
        switch (waysOut.of(node->path())) {
        case WayOut::trash:
            ++found.forTrash;
            break;
        case WayOut::deletion:
            found.toDelete.nodes.push_back(node);
            break;
        case WayOut::none:
            ++found.stuck;
            break;
        }
    }
    context.post(std::move(found));
}

void LookingJobs::operator()(const BrowserJobs::Volumes&) const {
    context.post(BrowserEvents::Volumes{context.id, context.services.volumes()});
}

void LookingJobs::operator()(const BrowserJobs::History& job) const {
    HistoryFound found;
    found.series = context.services.history().series(job.root);
    found.trend = GrowthTrend::of(found.series, SizeMode::allocated);
    context.post(BrowserEvents::History{context.id, std::move(found)});
}

void LookingJobs::operator()(const BrowserJobs::TrashList&) const {
    context.post(BrowserEvents::TrashListed{context.id, context.services.listTrash()});
}

} // namespace tarnwell
