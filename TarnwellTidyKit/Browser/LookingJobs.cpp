#include "TarnwellCore/Layout/TreemapLayout.hpp"
#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellTidyKit/Browser/JobRunner.hpp"
#include "TarnwellTidyKit/Browser/LiveTreeSource.hpp"
#include "TarnwellTidyKit/Commands/SnapshotCauses.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// Takes off what has gone since: its files are in the sums of the tree.
void takeOff(ReportFigures& figures, const FileNode& gone, SizeMode mode, Date now) {
    if (!gone.isDirectory() &&
        (gone.isHardlinkDuplicate() || gone.flags.contains(FileNodeFlags::inaccessible)))
        return;
    ReportFigures less = ReportFigures::of(gone, mode, 0, now);
    const auto subtract = [](FigureSum& from, const FigureSum& what) {
        from.size -= what.size;
        from.allocatedSize -= what.allocatedSize;
        from.reclaimableSize -= what.reclaimableSize;
        from.fileCount -= what.fileCount;
    };
    for (std::size_t number = 0; number < figures.categories.size(); ++number)
        subtract(figures.categories[number], less.categories[number]);
    for (std::size_t number = 0; number < figures.ages.size(); ++number)
        subtract(figures.ages[number], less.ages[number]);
}

std::vector<CleanupRule> rulesOf(const AppSettings& settings) {
    return settings.cleanupRules().value_or(CleanupRule::presets());
}

} // namespace

void LookingJobs::operator()(const BrowserJobs::Scan& job) const {
    const AppSettings settings(context.services.settings());
    const auto live = std::make_shared<LiveTree>();
    const auto source = std::make_shared<const LiveTreeSource>(live);
    ScanResult result = [&] {
        const auto report = [&](const ScanProgress& progress) {
            context.post(BrowserEvents::ScanProgressed{context.id, progress, source});
        };
        if (context.scan)
            return context.scan(job.folder, settings.scanOptions(), report, context.token, live);
        return DiskScanner().scan(job.folder, settings.scanOptions(), report, context.token, live).get();
    }();
    auto tree = std::make_shared<const BrowserTree>(std::move(result), context.services.home());
    context.post(BrowserEvents::ScanEnded{context.id, tree});
    if (context.isReadOnly)
        return;
    try {
        context.services.history().note(
            ScanRecord::of(tree->scan(), context.services.volumeContaining(tree->root().url())));
    } catch (const std::exception&) {
        // A history that cannot be written now misses a scan; nobody is to be bothered with that.
    }
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
    context.post(BrowserEvents::Freed{context.id, job.tree->freedBy(job.nodes)});
}

void LookingJobs::operator()(const BrowserJobs::Figures& job) const {
    constexpr std::size_t largest = 1000;
    const Date now = context.services.now();
    // So many more as may have gone.
    ReportFigures figures =
        ReportFigures::of(*job.folder, job.mode, largest + job.removals->nodes().count(), now);
    for (const FileNode* gone : job.removals->all())
        for (const FileNode* above = gone->parent(); above != nullptr; above = above->parent()) {
            if (job.removals->isGone(*above)) // went with that one
                break;
            if (above == job.folder) {
                takeOff(figures, *gone, job.mode, now);
                break;
            }
        }
    std::erase_if(figures.largestFiles,
                  [&](const FileNode* node) { return job.removals->isGoneWithItsFolders(*node); });
    figures.largestFiles.resize(std::min(figures.largestFiles.size(), largest));
    context.post(BrowserEvents::Figures{context.id, std::move(figures)});
}

void LookingJobs::operator()(const BrowserJobs::Find& job) const {
    constexpr std::size_t most = 100'000;
    LargestMatches matches = Search::largest(*job.folder, job.conditions, most, context.token);
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
        request.scanResult = job.tree->scan();
    context.post(BrowserEvents::Findings{
        context.id, context.services.findings(home, std::move(request), context.token).get()});
}

void LookingJobs::operator()(const BrowserJobs::Rules& job) const {
    RulesFound found;
    found.rules = job.rules ? *job.rules : rulesOf(AppSettings(context.services.settings()));
    found.matches = RuleEvaluator::evaluate(found.rules, job.tree->root(), context.services.now(),
                                            context.services.home().native(), context.token);
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
    // As deep and as fine as stored snapshots are.
    constexpr std::int64_t levels = 4;
    constexpr std::int64_t smallest = 1'000'000;
    std::vector<ScanSnapshot> snapshots = context.services.snapshotStore()->list();
    const std::string root = job.tree->root().path();
    std::erase_if(snapshots, [&](const ScanSnapshot& snapshot) { return snapshot.rootPath != root; });
    std::shared_ptr<ChangesFound> found;
    if (job.number < snapshots.size()) {
        found = std::make_shared<ChangesFound>();
        found->number = job.number;
        found->count = snapshots.size();
        found->earlier = std::make_shared<const EarlierSizes>(snapshots[job.number]);
        found->delta =
            SnapshotDelta::compare(std::move(snapshots[job.number]),
                                   ScanSnapshot::capture(job.tree->scan(), levels, smallest), 1, job.mode);
        for (const SnapshotDelta::Change* change : snapshotCauses(found->delta))
            found->causes.push_back(static_cast<std::size_t>(change - found->delta.changes.data()));
    }
    context.post(BrowserEvents::Changes{context.id, std::move(found)});
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
