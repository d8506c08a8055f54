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

/// Looked at again at the last moment: the home may be reached by another name now.
std::string_view reasonToStayNow(const JobContext& context, const std::string& path) {
    const fs::path home = context.services.home();
    const std::string_view reason = reasonToStay(path, home);
    return reason.empty() ? reasonToStay(path, DiskScanner::normalize(home)) : reason;
}

/// Leaves those that must stay out, with an outcome each.
std::vector<std::string> mayGo(const JobContext& context, const std::vector<std::string>& paths,
                               Acted& acted) {
    std::vector<fs::path> items;
    for (const std::string& path : paths) {
        if (const std::string_view reason = reasonToStayNow(context, path); !reason.empty())
            acted.outcomes.push_back({.source = path, .failure = std::string(reason)});
        else
            items.emplace_back(path);
    }
    const std::vector<fs::path> incomplete = SQLiteSidecarFiles::incompleteFamilyPaths(items);
    const std::unordered_set<std::string> left(incomplete.begin(), incomplete.end());
    for (const std::string& path : left)
        acted.outcomes.push_back(
            {.source = path, .failure = std::string(SQLiteSidecarFiles::reviewReason) + "."});
    std::vector<std::string> mayGo;
    for (const fs::path& item : items)
        if (!left.contains(item.native()))
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
std::vector<std::string> localCopies(const BrowserJobs::Evict& job, const std::vector<SyncedRoot>& roots) {
    const std::vector<SyncedRoots::PreparedRoot> prepared = SyncedRoots::prepare(roots);
    RemovedNodesQuery removed(job.removals->nodes());
    std::vector<std::string> files;
    for (const FileNode* item : job.items.nodes)
        if (SyncedRoots::touches(item->path(), prepared) || !item->isDirectory())
            item->forEachDescendant([&](const FileNode& node) {
                if (removed.containsNodeOrAncestor(node))
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

void noteRestored(const std::vector<RestoreOutcome>& outcomes, Acted& acted) {
    for (const RestoreOutcome& outcome : outcomes) {
        TidyOutcome noted{.source = outcome.restoredTo.value_or(outcome.source).native(),
                          .done = outcome.hasOtherName ? "put back under another name" : "put back",
                          .failure = outcome.failure};
        if (outcome.restoredTo && !outcome.hasOtherName)
            acted.back.push_back(outcome.restoredTo->native());
        acted.outcomes.push_back(std::move(noted));
    }
    acted.changesTrash = true;
}

/// Does one step for each path; between two of them the end of the program may come.
template <class Step>
void forEach(const JobContext& context, const std::vector<std::string>& paths, Acted& acted, Step step) {
    TidyContext commands(context.services, context.surroundings);
    TidyOutcomes outcomes;
    std::size_t number = 0;
    outcomes.actOnEach(commands, paths, [&](const std::string& path) {
        if (++number % 64 == 0)
            context.post(BrowserEvents::Progressed{
                context.id, groupedNumber(static_cast<std::int64_t>(number)) + " of " +
                                groupedNumber(static_cast<std::int64_t>(paths.size()))});
        return step(commands, path);
    });
    std::ranges::move(outcomes.all, std::back_inserter(acted.outcomes));
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
    Acted acted{.id = context.id, .title = "To the Trash", .changesTrash = true};
    const std::vector<std::string> paths = mayGo(context, pathsOf(job.items), acted);
    // One set, so that it can be undone as one; between two items the end of the program may come.
    TidyContext commands(context.services, context.surroundings);
    TidyTrashSet set(commands, paths, context.services.home());
    forEach(context, paths, acted, [&](const TidyContext&, const std::string& path) {
        TidyOutcome outcome = set.move(path);
        if (!outcome.failure)
            acted.gone.push_back(path);
        return outcome;
    });
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Undo&) const {
    Acted acted{.id = context.id, .title = "Undo"};
    const TrashListing listing = context.services.listTrash();
    const auto last =
        std::ranges::find_if(listing.items, [](const TrashedItem& item) { return item.set.has_value(); });
    if (last == listing.items.end())
        throw std::runtime_error(
            "There is nothing to undo: nothing that was moved from here is in the Trash.");
    TidyContext commands(context.services, context.surroundings);
    noteRestored(commands.act([&] { return context.services.restoreSet(*last->set); }), acted);
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Restore& job) const {
    Acted acted{.id = context.id, .title = "Put back"};
    TidyContext commands(context.services, context.surroundings);
    noteRestored(commands.act([&] {
        return context.services.restore({job.locations.begin(), job.locations.end()}, commands.token());
    }),
                 acted);
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Remove& job) const {
    Acted acted{.id = context.id, .title = "Delete", .isForGood = true};
    const std::vector<std::string> paths = mayGo(context, pathsOf(job.items), acted);
    WaysOut waysOut(context.services); // once more: who has asked may have asked long ago
    forEach(context, paths, acted, [&](const TidyContext& commands, const std::string& path) {
        if (const WayOut way = waysOut.of(path); way != WayOut::deletion)
            return TidyOutcome{.source = path,
                               .done = {},
                               .failure = way == WayOut::trash
                                              ? "It was not deleted: there is a Trash."
                                              : "It was not deleted: it cannot be taken out of its folder."};
        const RemovalResult result = context.services.removeForGood(path, commands.token());
        TidyOutcome outcome{.source = path, .done = "deleted for good"};
        if (result.isComplete) {
            acted.gone.push_back(path);
        } else {
            outcome.failure = result.wasCancelled       ? "Called off; part of it is gone."
                              : result.failures.empty() ? std::string("It could not be deleted.")
                                                        : result.failures.front().message;
            for (const RemovalResult::Failure& failure : result.failures)
                acted.outcomes.push_back({.source = failure.path, .failure = failure.message});
        }
        return outcome;
    });
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Evict& job) const {
    Acted acted{.id = context.id, .title = "Free local copies"};
    const auto roots = context.services.syncedRoots(context.services.home());
    const std::vector<std::string> files = localCopies(job, roots);
    if (files.empty())
        throw std::runtime_error("It holds no local copy of a file in the cloud.");
    forEach(context, files, acted, [&](const TidyContext& commands, const std::string& path) {
        return evicted(commands, path, roots);
    });
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Share& job) const {
    Acted acted{.id = context.id, .title = "Share blocks"};
    for (const SharingRequest& group : job.groups)
        for (const SharingOutcome& shared : context.services.shareBlocks(group, context.token).get()) {
            TidyOutcome outcome{.source = urlOf(shared).native(),
                                .done = "shares its blocks",
                                .bytesFreed = bytesFreedBy(shared)};
            if (const auto* refused = std::get_if<SharingRefused>(&shared))
                outcome.failure = refused->refusal.explanation();
            else if (const auto* failed = std::get_if<SharingFailed>(&shared))
                outcome.failure = failed->message;
            acted.outcomes.push_back(std::move(outcome));
        }
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Clear& job) const {
    Acted acted{.id = context.id, .title = job.finding.title, .changesTrash = true};
    TidyContext commands(context.services, context.surroundings);
    TidyOutcomes outcomes;
    clearFinding(job.finding, context.services.home(), commands, outcomes);
    for (const TidyOutcome& outcome : outcomes.all)
        if (!outcome.failure && outcome.done == "in the Trash")
            acted.gone.push_back(outcome.source);
    acted.outcomes = std::move(outcomes.all);
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::EmptyTrash&) const {
    Acted acted{.id = context.id, .title = "Empty the Trash", .changesTrash = true};
    TidyContext commands(context.services, context.surroundings);
    acted.outcomes.push_back(commands.act([&] { return emptied(commands, context.services.home()); }));
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::TakeSnapshot& job) const {
    context.services.snapshotStore()->save(
        storedSnapshotOf(scanNow(*job.tree, *job.removals, context.surroundings.interruption->token())));
    Acted acted{.id = context.id, .title = "Snapshot"};
    acted.outcomes.push_back({.source = job.tree->root().path(), .done = "snapshot taken"});
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::ChangeRules& job) const {
    AppSettings settings(context.services.settings());
    auto rules =
        settings.changeCleanupRules([&](std::vector<CleanupRule>& present) { job.applyTo(present); });
    storeSettings(settings);
    context.post(BrowserEvents::RulesStored{context.id, std::move(rules)});
}

void ActingJobs::operator()(const BrowserJobs::Open& job) const {
    Acted acted{.id = context.id};
    TidyOutcome outcome{.source = job.path, .done = "opened"};
    if (!context.services.open(job.path))
        outcome.failure = "There is no desktop here to open it on.";
    acted.outcomes.push_back(std::move(outcome));
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Reveal& job) const {
    Acted acted{.id = context.id};
    TidyOutcome outcome{.source = job.path, .done = "shown in the file browser"};
    if (!context.services.reveal(job.path))
        outcome.failure = "There is no desktop here to show it on.";
    acted.outcomes.push_back(std::move(outcome));
    context.post(std::move(acted));
}

void ActingJobs::operator()(const BrowserJobs::Remember& job) const {
    AppSettings settings(context.services.settings());
    job.memory.store(settings);
    context.post(Acted{.id = context.id});
}

} // namespace tarnwell
