#include "TarnwellCore/Scanning/NodeFinder.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/UpdateParts.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <utility>

namespace tarnwell {

namespace {

using namespace BrowserParts;

struct Taking {
    BrowserState& state;

    template <class Value>
    bool take(Loaded<Value>& loaded, std::uint64_t id, Value value) const {
        if (loaded.awaited != id)
            return false;
        loaded.awaited = 0;
        loaded.value = std::move(value);
        return true;
    }

    void operator()(BrowserEvents::ScanProgressed& event) const {
        if (event.id != state.scanAwaited)
            return;
        scanHasBegun(state);
        state.progress = std::move(event.progress);
        state.live = event.live;
        scanProgressed(state);
    }

    void operator()(BrowserEvents::Looked& event) const {
        if (event.id != state.lookAwaited)
            return;
        state.lookAwaited = 0;
        if (state.tree == nullptr && state.live != nullptr)
            takeLook(state, event);
    }

    /// What had gone from the tree before, in the new one: what was read again shows by itself what is there.
    std::shared_ptr<const Removals> removalsIn(const BrowserEvents::ScanEnded& event,
                                               NodeFinder& finder) const {
        auto removals = std::make_shared<Removals>();
        const auto note = [&](const std::string& path, bool isForGood) {
            if (const FileNode* node = finder.find(path))
                removals->note(*node, isForGood);
        };
        if (event.part)
            for (const FileNode* gone : state.removals->all())
                if (const std::string path = gone->path(); !liesIn(path, *event.part))
                    note(path, state.removals->forGood().contains(gone));
        for (const std::string& path : state.goneMeanwhile)
            note(path, false);
        return removals;
    }

    /// The same marks in the new tree. A million of them were found where the scan was done, unless they are
    /// others by now.
    Marks marksIn(BrowserEvents::ScanEnded& event, const Removals& removals) const {
        if (event.marks.before != state.marks)
            event.marks = event.tree->carried(std::move(state.marks));
        Marks marks = std::move(event.marks.now);
        if (!removals.isEmpty())
            for (const FileNode* node : marks.nodes())
                if (removals.isGoneWithItsFolders(*node))
                    marks.remove(*node);
        return marks;
    }

    void operator()(BrowserEvents::ScanEnded& event) const {
        if (event.id != state.scanAwaited)
            return;
        scanHasBegun(state);
        state.scanAwaited = 0;
        callOff(state, state.lookAwaited);
        const FileNode& root = event.tree->root();
        // The same place in the new tree, the same item, the same marks.
        NodeFinder finder(root);
        const FileNode* entry = state.selectedNode != nullptr ? finder.like(*state.selectedNode) : nullptr;
        auto removals = removalsIn(event, finder);
        const bool hadMarks = !state.marks.isEmpty();
        Marks marks = marksIn(event, *removals);
        const FileNode* folder = nullptr;
        for (const FileNode* above = state.folder; above != nullptr && folder == nullptr;
             above = above->parent())
            if (const FileNode* same = finder.like(*above); same != nullptr && same->isDirectory())
                folder = same;
        const bool isMoved = state.cursors[static_cast<std::size_t>(BrowserView::list)].isMoved;
        forgetFindings(state);
        state.choice.earlier = nullptr;
        discard(state, {std::move(state.live), std::move(state.entries), std::move(state.order),
                        std::exchange(state.tree, std::move(event.tree)), std::move(state.removals)});
        state.live = nullptr;
        state.entries = nullptr;
        state.order = nullptr;
        state.removals = std::move(removals);
        state.goneMeanwhile.clear();
        const std::set<std::string> back = std::exchange(state.backMeanwhile, {});
        state.rootPath = root.path();
        state.folder = folder != nullptr ? folder : &root;
        while (state.folder->parent() != nullptr && state.removals->isGoneWithItsFolders(*state.folder))
            state.folder = state.folder->parent();
        state.marks = std::move(marks);
        state.selectedNode = entry;
        state.wantedEntry = isMoved ? entry : nullptr;
        relist(state);
        if (hadMarks)
            marksChanged(state);
        if (state.has(BrowserColumn::change)) {
            state.changes.subject = state.tree.get();
            state.changes.awaited = ask(state, BrowserJobs::Changes{state.tree, state.removals,
                                                                    state.choice.mode, state.snapshotNumber});
        }
        refreshView(state);
        readUnknown(back, finder);
    }

    /// What is back, but not in the tree: the nearest folder that is there is read again.
    void readUnknown(const auto& back, NodeFinder& finder) const {
        const FileNode* unread = nullptr;
        for (const std::string& path : back) {
            if (!liesIn(path, state.rootPath) || finder.find(path) != nullptr)
                continue;
            std::string_view above = path;
            const FileNode* folder = nullptr;
            while (folder == nullptr && above.size() > state.rootPath.size()) {
                above = above.substr(0, std::max<std::size_t>(above.rfind('/'), 1));
                folder = finder.find(above);
            }
            // Several are read by the folder that holds them all.
            if (folder == nullptr)
                folder = &state.tree->root();
            while (unread != nullptr && unread != folder && !liesIn(folder->path(), unread->path()))
                unread = unread->parent();
            unread = unread != nullptr ? unread : folder;
        }
        if (unread != nullptr)
            scanAgain(state, *unread);
    }

    void operator()(BrowserEvents::Ordered& event) const {
        if (event.id != state.orderAwaited)
            return;
        state.orderAwaited = 0;
        takeOrder(state, event.order);
    }
    void operator()(BrowserEvents::Mapped& event) const {
        if (take(state.map, event.id, std::move(event.tiles)) && state.tile >= state.map.value->size())
            state.tile = 0;
    }
    void operator()(BrowserEvents::Freed& event) const {
        take(state.freed, event.id, std::move(event.bytes));
    }
    void operator()(BrowserEvents::Figures& event) const {
        take(state.figures, event.id, std::move(event.figures));
    }
    void operator()(BrowserEvents::Found& event) const {
        take(state.found, event.id, std::move(event.items));
    }
    void operator()(BrowserEvents::Findings& event) const {
        take(state.findings, event.id, std::move(event.findings));
    }
    void operator()(BrowserEvents::Rules& event) const {
        if (take(state.rules, event.id, event.found)) {
            state.ruleList = event.found.rules;
            return;
        }
        if (!take(state.tried, event.id, std::move(event.found)) || !state.prompt)
            return;
        const std::vector<RuleMatch>& matches = state.tried.value->matches;
        state.prompt->noteIsError = false;
        state.prompt->note = matches.empty()
                                 ? "matches nothing here"
                                 : "matches " + countedText(matches.front().itemCount, "item", "items") +
                                       ", " + sizeText(matches.front().totalSize);
    }
    void operator()(BrowserEvents::RulesStored& event) const {
        if (event.id != state.rulesStoring)
            return; // one more change is under way
        state.areRulesEdited = false;
        if (event.rules != state.ruleList) // others have changed something, too
            showRules(state, std::move(event.rules));
        refreshView(state);
    }
    void operator()(BrowserEvents::Duplicates& event) const {
        if (!take(state.duplicates, event.id, event.result))
            return;
        state.duplicateRows.clear();
        for (std::uint32_t group = 0; group < event.result->groups.size(); ++group) {
            state.duplicateRows.push_back({group, DuplicateRow::none});
            for (std::uint32_t member = 0; member < event.result->groups[group].members.size(); ++member)
                state.duplicateRows.push_back({group, member});
        }
        // Read before, and gone meanwhile.
        RemovedNodesQuery gone(state.removals->nodes());
        leaveOutDuplicates([&](const FileNode* node) { return gone.containsNodeOrAncestor(*node); });
    }
    void operator()(BrowserEvents::Changes& event) const {
        if (!take(state.changes, event.id, event.found))
            return;
        state.choice.earlier = event.found ? event.found->earlier : nullptr;
        if (!event.found && state.view != BrowserView::changes)
            say(state, "There is no snapshot of this folder yet; w takes one.");
        if (state.has(BrowserColumn::change) || state.choice.sort.key == SortKey::change)
            relist(state);
    }
    void operator()(BrowserEvents::WaysOutFound& event) const {
        if (event.id != state.waysOutAwaited)
            return;
        state.waysOutAwaited = 0;
        askForWord(state, std::move(event.toDelete), event.forTrash, event.stuck);
    }
    void operator()(BrowserEvents::Volumes& event) const {
        take(state.volumes, event.id, std::move(event.volumes));
    }
    void operator()(BrowserEvents::LedgerMade& event) const {
        take(state.ledger, event.id, std::move(event.ledger));
    }
    void operator()(BrowserEvents::History& event) const {
        take(state.history, event.id, std::move(event.found));
    }
    void operator()(BrowserEvents::TrashListed& event) const {
        take(state.trash, event.id, std::move(event.listing));
    }

    void operator()(BrowserEvents::Acted& event) const {
        std::size_t failed = 0;
        std::int64_t freed = 0;
        for (const TidyOutcome& outcome : event.outcomes) {
            failed += outcome.failure ? 1 : 0;
            freed += outcome.bytesFreed.value_or(0);
            state.outcomes.push_back(
                {shortPath(state, outcome.source) + ": " + outcome.failure.value_or(outcome.done),
                 outcome.failure.has_value()});
        }
        constexpr std::size_t most = 10'000;
        if (state.outcomes.size() > most)
            state.outcomes.erase(state.outcomes.begin(),
                                 state.outcomes.end() - static_cast<std::ptrdiff_t>(most));
        const std::size_t done = event.outcomes.size() - failed;
        if (event.outcomes.size() == 1) {
            say(state, state.outcomes.back().text, failed > 0);
        } else if (!event.outcomes.empty()) {
            std::string text =
                event.title + ": " + countedText(static_cast<std::int64_t>(done), "item", "items") + " done";
            if (freed > 0)
                text += ", " + sizeText(freed) + " freed";
            if (failed > 0)
                text += ", " + groupedNumber(static_cast<std::int64_t>(failed)) + " not: see Outcomes";
            say(state, text, failed > 0);
        }
        followChanges(event);
        if (event.changesTrash) {
            callOff(state, state.trash.awaited);
            state.trash.forget();
        }
        if (event.title == "Snapshot") { // there is one more to compare with
            callOff(state, state.changes.awaited);
            state.changes.forget();
            state.snapshotNumber = 0;
        }
        callOff(state, state.history.awaited);
        state.history.forget();
        refreshView(state);
    }

    /// What is gone is left out, with the sums above it; what is back is shown again.
    void followChanges(const BrowserEvents::Acted& event) const {
        if (state.isScanning()) {
            for (const std::string& path : event.back)
                state.goneMeanwhile.erase(path);
            for (const std::string& path : event.gone)
                state.backMeanwhile.erase(path);
            state.goneMeanwhile.insert(event.gone.begin(), event.gone.end());
            state.backMeanwhile.insert(event.back.begin(), event.back.end());
        }
        if (state.tree == nullptr || (event.gone.empty() && event.back.empty()))
            return;
        auto removals = std::make_shared<Removals>(*state.removals);
        NodeFinder finder(state.tree->root());
        const FileNode* nextEntry = nullptr;
        for (const std::string& path : event.gone)
            if (const FileNode* node = finder.find(path))
                removals->note(*node, event.isForGood);
        for (const std::string& path : event.back)
            if (const FileNode* node = finder.find(path)) {
                removals->restore(*node);
                nextEntry = node->parent() == state.folder ? node : nextEntry;
            }
        state.removals = std::move(removals);
        RemovedNodesQuery gone(state.removals->nodes());
        const auto isGone = [&](const FileNode* node) { return gone.containsNodeOrAncestor(*node); };
        for (const FileNode* node : state.marks.nodes())
            if (isGone(node)) // perhaps because a folder above it went
                state.marks.remove(*node);
        const FileNode* const shown = state.folder;
        while (state.folder->parent() != nullptr && isGone(state.folder))
            state.folder = state.folder->parent();
        if (state.folder != shown) {
            // Rows of another folder would be numbers of nothing.
            state.order = nullptr;
            state.selectedNode = nullptr;
            state.cursors[static_cast<std::size_t>(BrowserView::list)] = {};
            state.choice.filter.clear();
        }
        state.map.subject = nullptr;
        state.figures.subject = nullptr;
        followFound(isGone, !event.back.empty());
        leaveOutDuplicates(isGone);
        compareAgain();
        callOff(state, state.findings.awaited);
        state.findings.forget();
        // What was reckoned with it is asked for anew.
        callOff(state, state.rules.awaited);
        state.rules.forget();
        state.wantedEntry = nextEntry;
        relist(state);
        marksChanged(state);
        if (!state.isScanning())
            readUnknown(event.back, finder);
    }

    /// What was found, without what is gone; where that is not enough to know, it is searched again.
    void followFound(const auto& isGone, bool isSomethingBack) const {
        bool isWhole = true;
        if (state.found.value) {
            FoundItems& items = *state.found.value;
            isWhole = items.totals.count == static_cast<std::int64_t>(items.nodes.size());
            std::erase_if(items.nodes, isGone);
            const std::int64_t undecided = items.totals.undecidedCount;
            if (isWhole)
                items.totals = state.removals->totalsOf(items.nodes);
            items.totals.undecidedCount = undecided;
        }
        // A search under way knows nothing of this either.
        if (state.foundBy &&
            (state.found.isLoading() || (state.found.value && (!isWhole || isSomethingBack))))
            findAgain(state);
    }

    void leaveOutDuplicates(const auto& isGone) const {
        std::erase_if(state.duplicateRows, [&](const DuplicateRow& row) {
            return row.member != DuplicateRow::none &&
                   isGone((*state.duplicates.value)->groups[row.group].members[row.member].node);
        });
    }

    /// What was compared is forgotten; sizes of the past stay what they are.
    void compareAgain() const {
        const bool isAsked = state.changes.isLoading();
        callOff(state, state.changes.awaited);
        state.changes.forget();
        if (isAsked) {
            state.changes.subject = state.tree.get();
            state.changes.awaited = ask(state, BrowserJobs::Changes{state.tree, state.removals,
                                                                    state.choice.mode, state.snapshotNumber});
        }
    }

    void operator()(BrowserEvents::Progressed& event) const {
        for (RunningJob& job : state.running)
            if (job.id == event.id)
                job.text = std::move(event.text);
    }

    void operator()(BrowserEvents::Failed& event) const {
        const auto fail = [&](auto& loaded) {
            if (loaded.awaited != event.id)
                return false;
            loaded.awaited = 0;
            loaded.failure = event.reason.empty() ? "Called off." : event.reason;
            return true;
        };
        if (event.id == state.scanAwaited) {
            state.scanAwaited = 0;
            state.wantedRoot.clear();
            callOff(state, state.lookAwaited);
            if (state.tree == nullptr) {
                state.folder = nullptr;
                discard(state, {std::move(state.entries), std::move(state.order)});
                state.entries = nullptr;
                state.order = nullptr;
                state.marks.clear();
                state.selectedNode = nullptr;
                state.rootPath.clear();
                showView(state, BrowserView::volumes);
            }
            discard(state, {std::move(state.live)});
            state.live = nullptr;
            if (state.tree != nullptr) {
                NodeFinder finder(state.tree->root());
                readUnknown(std::exchange(state.backMeanwhile, {}), finder);
            }
        } else if (event.id == state.lookAwaited) {
            state.lookAwaited = 0;
            state.held.clear();
        } else if (event.id == state.waysOutAwaited) {
            state.waysOutAwaited = 0;
            state.held.clear();
        } else if (event.id == state.orderAwaited) {
            state.orderAwaited = 0;
            state.held.clear();
        } else if (!fail(state.freed) && !fail(state.map) && !fail(state.figures) && !fail(state.found) &&
                   !fail(state.findings) && !fail(state.rules) && !fail(state.tried) &&
                   !fail(state.duplicates) && !fail(state.changes) && !fail(state.volumes) &&
                   !fail(state.ledger) && !fail(state.history)) {
            fail(state.trash);
        }
        if (!event.reason.empty()) {
            state.outcomes.push_back({event.reason, true});
            say(state, event.reason, true);
        }
    }
};

std::uint64_t idOf(const BrowserEvent& event) {
    return std::visit([](const auto& each) { return each.id; }, event);
}

/// Whether it is not the last that is heard of its job.
bool isProgress(const BrowserEvent& event) {
    return std::holds_alternative<BrowserEvents::ScanProgressed>(event) ||
           std::holds_alternative<BrowserEvents::Progressed>(event);
}

} // namespace

void update(BrowserState& state, BrowserEvent event) {
    if (!isProgress(event))
        std::erase_if(state.running, [&](const RunningJob& job) { return job.id == idOf(event); });
    std::visit(Taking{state}, event);
    settle(state);
    takeHeldKeys(state);
}

} // namespace tarnwell
