#include "TarnwellCore/Actions/SyncedRoots.hpp"
#include "TarnwellCore/Analysis/SQLiteSidecarFiles.hpp"
#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellTidyKit/Browser/JobRunner.hpp"
#include "TarnwellTidyKit/Commands/CleanCommand.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"
#include "TarnwellTidyKit/Commands/SettingsCommand.hpp"
#include "TarnwellTidyKit/Commands/StoredSnapshot.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <stdexcept>
#include <unordered_set>
#include <utility>
#include <variant>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using BrowserEvents::Acted;

/// What an act comes to. Of a million items few outcomes are kept, the failures first.
class Act {
public:
    explicit Act(Acted event) : event_(std::move(event)) {}

    ItemChanges changes;

    void add(TidyOutcome outcome) {
        (outcome.failure ? event_.failed : event_.done) += 1;
        event_.freed += outcome.bytesFreed.value_or(0);
        event_.outcomes.push_back(std::move(outcome));
        if (event_.outcomes.size() >= 2 * most)
            dropSome();
    }

    /// `tree` is the one that was shown; null for none.
    void post(const JobContext& context, std::shared_ptr<const BrowserTree> tree = {}) {
        dropSome();
        if (changes.count() > 0) {
            auto found = std::make_shared<FoundChanges>();
            found->items = std::move(changes);
            found->nodes = ChangedNodes::of(found->items, std::move(tree));
            event_.changes = std::move(found);
        }
        context.post(std::move(event_));
    }

private:
    static constexpr std::size_t most = 10'000;

    void dropSome() {
        std::vector<TidyOutcome>& all = event_.outcomes;
        std::size_t surplus = all.size() > most ? all.size() - most : 0;
        std::erase_if(all, [&](const TidyOutcome& outcome) {
            return !outcome.failure && surplus > 0 && surplus-- > 0;
        });
        all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(surplus));
    }

    Acted event_;
};

/// Leaves those that must stay out, with an outcome each. Looked at again at the last moment: the home may be
/// reached by another name now.
std::vector<std::string> mayGo(const JobContext& context, std::vector<std::string> paths, Act& act) {
    constexpr std::size_t pathsBetweenLooks = 4096;
    const CancellationToken token = context.surroundings.interruption->token();
    ProtectedPlaces places(context.services.home());
    std::vector<fs::path> items;
    for (std::string& path : paths) {
        if (items.size() % pathsBetweenLooks == pathsBetweenLooks - 1) {
            if (token.isCancelled()) {
                for (std::string& each : paths)
                    act.add({.source = std::move(each), .failure = std::string(notTouchedReason)});
                return {};
            }
            context.post(BrowserEvents::Progressed{
                context.id, "looking at " + groupedNumber(static_cast<std::int64_t>(items.size() + 1)) +
                                " of " + groupedNumber(static_cast<std::int64_t>(paths.size()))});
        }
        if (const std::string_view reason = places.reasonToStay(path); !reason.empty())
            act.add({.source = path, .failure = std::string(reason)});
        else
            items.emplace_back(path);
    }
    const std::vector<fs::path> incomplete = SQLiteSidecarFiles::incompleteFamilyPaths(items);
    const std::unordered_set<std::string> left(incomplete.begin(), incomplete.end());
    for (const std::string& path : left)
        act.add({.source = path, .failure = std::string(SQLiteSidecarFiles::reviewReason) + "."});
    std::vector<std::string> mayGo;
    mayGo.reserve(items.size());
    for (const fs::path& item : items)
        if (left.empty() || !left.contains(item.native()))
            mayGo.push_back(item.native());
    return mayGo;
}

std::vector<std::string> pathsOf(const BrowserJobs::TreeItems& items) {
    std::vector<std::string> paths;
    paths.reserve(items.nodes.size());
    for (const FileNode* node : items.nodes)
        paths.push_back(node->path());
    return paths;
}

/// The files in the cloud's folders of which there may be a local copy.
std::vector<std::string> localCopies(const BrowserJobs::Evict& job, const std::vector<SyncedRoot>& roots,
                                     const CancellationToken& token) {
    const std::vector<SyncedRoots::PreparedRoot> prepared = SyncedRoots::prepare(roots);
    RemovedNodesQuery removed(job.removals->nodes());
    std::vector<std::string> files;
    for (const FileNode* item : job.items.nodes)
        if (SyncedRoots::touches(item->path(), prepared) || !item->isDirectory())
            item->forEachDescendant([&](const FileNode& node) {
                if (token.isCancelled() || removed.containsNodeOrAncestor(node))
                    return false;
                if (node.isDirectory())
                    return SyncedRoots::touches(node.path(), prepared);
                if (node.isSymlink() || node.flags.contains(FileNodeFlags::dataless))
                    return true;
                std::string path = node.path();
                if (SyncedRoots::root(path, prepared) != nullptr)
                    files.push_back(std::move(path));
                return true;
            });
    return files;
}

void noteRestored(const std::vector<RestoreOutcome>& outcomes, Act& act) {
    for (const RestoreOutcome& outcome : outcomes) {
        TidyOutcome noted{.source = outcome.restoredTo.value_or(outcome.source).native(),
                          .done = outcome.hasOtherName ? "put back under another name" : "put back",
                          .failure = outcome.failure};
        if (outcome.restoredTo && !outcome.hasOtherName)
            act.changes.back.push_back(outcome.restoredTo->native());
        act.add(std::move(noted));
    }
}

/// Does one step for each path; between two of them the end of the program may come.
template <class Step>
void forEach(const JobContext& context, const std::vector<std::string>& paths, Act& act, Step step) {
    constexpr std::size_t atOnce = 64;
    TidyContext commands(context.services, context.surroundings);
    for (std::size_t first = 0; first < paths.size(); first += atOnce) {
        const auto begin = paths.begin() + static_cast<std::ptrdiff_t>(first);
        const std::vector<std::string> some(
            begin, begin + static_cast<std::ptrdiff_t>(std::min(atOnce, paths.size() - first)));
        TidyOutcomes outcomes;
        outcomes.actOnEach(commands, some, [&](const std::string& path) { return step(commands, path); });
        for (TidyOutcome& outcome : outcomes.all)
            act.add(std::move(outcome));
        if (first + atOnce < paths.size())
            context.post(BrowserEvents::Progressed{
                context.id, groupedNumber(static_cast<std::int64_t>(first + atOnce)) + " of " +
                                groupedNumber(static_cast<std::int64_t>(paths.size()))});
    }
}

} // namespace

void JobRunner::operator()(const BrowserRequest& request, const CancellationToken& token,
                           const WorkQueue::Post& post) const {
    const JobContext context{services_, surroundings_, isReadOnly_, scan_, choices_, request.id, token, post};
    std::visit(
        [&]<class Job>(const Job& job) {
            if constexpr (std::invocable<LookingJobs, const Job&>)
                LookingJobs{context}(job);
            else
                ActingJobs{context}(job);
        },
        request.job);
}

WayOut WaysOut::of(const fs::path& item) {
    const auto folder = known_.find(item.parent_path().native());
    if (folder != known_.end())
        return folder->second;
    const WayOut way = services_.wayOutOf(item);
    // That one item cannot go says nothing of the next.
    if (way != WayOut::none)
        known_.emplace(item.parent_path().native(), way);
    return way;
}

void ActingJobs::operator()(const BrowserJobs::Trash& job) const {
    Act act({.id = context.id, .title = "To the Trash", .changesTrash = true});
    const std::vector<std::string> paths = mayGo(context, pathsOf(job.items), act);
    // One set, so that it can be undone as one; between two items the end of the program may come.
    TidyContext commands(context.services, context.surroundings);
    TidyTrashSet set(commands, paths, context.services.home());
    forEach(context, paths, act, [&](const TidyContext&, const std::string& path) {
        TidyOutcome outcome = set.move(path);
        if (!outcome.failure)
            act.changes.gone.push_back(path);
        return outcome;
    });
    act.post(context, job.items.tree);
}

void ActingJobs::operator()(const BrowserJobs::Undo& job) const {
    Act act({.id = context.id, .title = "Undo", .changesTrash = true});
    const TrashListing listing = context.services.listTrash();
    const auto last =
        std::ranges::find_if(listing.items, [](const TrashedItem& item) { return item.set.has_value(); });
    if (last == listing.items.end())
        throw std::runtime_error(
            "There is nothing to undo: nothing that was moved from here is in the Trash.");
    TidyContext commands(context.services, context.surroundings);
    noteRestored(commands.act([&] { return context.services.restoreSet(*last->set); }), act);
    act.post(context, job.tree);
}

void ActingJobs::operator()(const BrowserJobs::Restore& job) const {
    Act act({.id = context.id, .title = "Put back", .changesTrash = true});
    TidyContext commands(context.services, context.surroundings);
    noteRestored(commands.act([&] {
        return context.services.restore({job.locations.begin(), job.locations.end()}, commands.token());
    }),
                 act);
    act.post(context, job.tree);
}

void ActingJobs::operator()(const BrowserJobs::Remove& job) const {
    Act act({.id = context.id, .title = "Delete"});
    act.changes.isForGood = true;
    const std::vector<std::string> paths = mayGo(context, pathsOf(job.items), act);
    WaysOut waysOut(context.services); // once more: who has asked may have asked long ago
    forEach(context, paths, act, [&](const TidyContext& commands, const std::string& path) {
        if (const WayOut way = waysOut.of(path); way != WayOut::deletion)
            return TidyOutcome{.source = path,
                               .done = {},
                               .failure = way == WayOut::trash
                                              ? "It was not deleted: there is a Trash."
                                              : "It was not deleted: it cannot be taken out of its folder."};
        const RemovalResult result = context.services.removeForGood(path, commands.token());
        TidyOutcome outcome{.source = path, .done = "deleted for good"};
        if (result.isComplete) {
            act.changes.gone.push_back(path);
        } else {
            outcome.failure = result.wasCancelled       ? "Called off; part of it is gone."
                              : result.failures.empty() ? std::string("It could not be deleted.")
                                                        : result.failures.front().message;
            for (const RemovalResult::Failure& failure : result.failures)
                act.add({.source = failure.path, .failure = failure.message});
        }
        return outcome;
    });
    act.post(context, job.items.tree);
}

void ActingJobs::operator()(const BrowserJobs::Evict& job) const {
    Act act({.id = context.id, .title = "Free local copies"});
    const auto roots = context.services.syncedRoots(context.services.home());
    const std::vector<std::string> files =
        localCopies(job, roots, context.surroundings.interruption->token());
    if (files.empty())
        throw std::runtime_error("It holds no local copy of a file in the cloud.");
    forEach(context, files, act, [&](const TidyContext& commands, const std::string& path) {
        return evicted(commands, path, roots);
    });
    act.post(context);
}

void ActingJobs::operator()(const BrowserJobs::Share& job) const {
    Act act({.id = context.id, .title = "Share blocks"});
    for (const SharingRequest& group : job.groups)
        for (const SharingOutcome& shared : context.services.shareBlocks(group, context.token).get()) {
            TidyOutcome outcome{.source = urlOf(shared).native(),
                                .done = "shares its blocks",
                                .bytesFreed = bytesFreedBy(shared)};
            if (const auto* refused = std::get_if<SharingRefused>(&shared))
                outcome.failure = refused->refusal.explanation();
            else if (const auto* failed = std::get_if<SharingFailed>(&shared))
                outcome.failure = failed->message;
            act.add(std::move(outcome));
        }
    act.post(context);
}

void ActingJobs::operator()(const BrowserJobs::Clear& job) const {
    Act act({.id = context.id, .title = job.finding.title, .changesTrash = true});
    TidyContext commands(context.services, context.surroundings);
    TidyOutcomes outcomes;
    clearFinding(job.finding, context.services.home(), commands, outcomes);
    for (TidyOutcome& outcome : outcomes.all) {
        if (!outcome.failure && outcome.done == "in the Trash")
            act.changes.gone.push_back(outcome.source);
        act.add(std::move(outcome));
    }
    act.post(context, job.tree);
}

void ActingJobs::operator()(const BrowserJobs::EmptyTrash&) const {
    Act act({.id = context.id, .title = "Empty the Trash", .changesTrash = true});
    TidyContext commands(context.services, context.surroundings);
    act.add(commands.act([&] { return emptied(commands, context.services.home()); }));
    act.post(context);
}

void ActingJobs::operator()(const BrowserJobs::TakeSnapshot& job) const {
    context.services.snapshotStore()->save(
        storedSnapshotOf(scanNow(*job.tree, *job.removals, context.surroundings.interruption->token())));
    Act act({.id = context.id, .title = "Snapshot"});
    act.add({.source = job.tree->root().path(), .done = "snapshot taken"});
    act.post(context);
}

void ActingJobs::operator()(const BrowserJobs::ChangeRules& job) const {
    AppSettings settings(context.services.settings());
    auto rules =
        settings.changeCleanupRules([&](std::vector<CleanupRule>& present) { job.applyTo(present); });
    storeSettings(settings);
    context.post(BrowserEvents::RulesStored{context.id, std::move(rules)});
}

void ActingJobs::operator()(const BrowserJobs::Open& job) const {
    Act act({.id = context.id});
    TidyOutcome outcome{.source = job.path, .done = "opened"};
    if (!context.services.open(job.path))
        outcome.failure = "There is no desktop here to open it on.";
    act.add(std::move(outcome));
    act.post(context);
}

void ActingJobs::operator()(const BrowserJobs::Reveal& job) const {
    Act act({.id = context.id});
    TidyOutcome outcome{.source = job.path, .done = "shown in the file browser"};
    if (!context.services.reveal(job.path))
        outcome.failure = "There is no desktop here to show it on.";
    act.add(std::move(outcome));
    act.post(context);
}

void ActingJobs::operator()(const BrowserJobs::Remember& job) const {
    AppSettings settings(context.services.settings());
    job.memory.store(settings);
    context.post(Acted{.id = context.id});
}

} // namespace tarnwell
