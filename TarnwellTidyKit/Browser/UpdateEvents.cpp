#include "TarnwellCore/Scanning/NodeFinder.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/UpdateParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <iterator>
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

    void operator()(BrowserEvents::ScanEnded& event) const {
        if (event.id != state.scanAwaited)
            return dropAnswer(event.tree, event.notes ? event.notes->now.removals : nullptr);
        scanHasBegun(state);
        const TreeNotes notes = state.notes();
        const bool areReady =
            event.notes && event.notes->before.areSame(notes) && event.changeCount == state.meanwhile.count();
        if (!areReady && areManyToCarry(event)) {
            dropAnswer(nullptr, event.notes ? event.notes->now.removals : nullptr);
            state.scanAwaited =
                ask(state, BrowserJobs::Carry{std::move(event.tree), std::move(event.part), notes,
                                              state.meanwhile, std::move(event.marks), state.tree});
            return;
        }
        state.scanAwaited = 0;
        callOff(state, state.lookAwaited);
        const FileNode& root = event.tree->root();
        // The same place in the new tree, the same item, the same marks.
        NodeFinder finder(root);
        const FileNode* entry = state.selectedNode != nullptr ? finder.like(*state.selectedNode) : nullptr;
        const bool hadMarks = !state.marks.isEmpty();
        FollowedChanges carriedOver =
            areReady ? std::move(*event.notes)
                     : carried(event.tree, notes, event.part, state.meanwhile, event.marks);
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
        state.removals = std::move(carriedOver.now.removals);
        discard(state, std::exchange(state.meanwhile.since, {}));
        discard(state, std::exchange(state.meanwhile.before, {}));
        state.unread = nullptr;
        state.rootPath = root.path();
        state.folder = folder != nullptr ? folder : &root;
        while (state.folder->parent() != nullptr && state.removals->isGoneWithItsFolders(*state.folder))
            state.folder = state.folder->parent();
        state.marks = std::move(carriedOver.now.marks);
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
        if (carriedOver.unread != nullptr) // something is back that is not in the tree
            scanAgain(state, *carriedOver.unread);
        if (!event.part) { // what had happened before it began, it has seen, and the rest is carried over
            callOff(state, state.followAwaited);
            discard(state, std::exchange(state.unfollowed, {}));
        }
        followSoon();
    }

    /// What nobody waits for any more may be large.
    void dropAnswer(std::shared_ptr<const void> tree, std::shared_ptr<const void> removals) const {
        discard(state, {std::move(tree), std::move(removals)});
    }

    bool areManyToCarry(const BrowserEvents::ScanEnded& event) const {
        const bool mustCarryMarks = event.marks.before != state.marks || !state.removals->isEmpty();
        return (mustCarryMarks && state.marks.count() > fewItems) ||
               (event.part && state.removals->all().size() > fewItems) ||
               countOf(state.meanwhile.since) + countOf(state.meanwhile.before) > fewItems;
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
        for (const TidyOutcome& outcome : event.outcomes)
            state.outcomes.push_back(
                {shortPath(state, outcome.source) + ": " + outcome.failure.value_or(outcome.done),
                 outcome.failure.has_value()});
        constexpr std::size_t most = 10'000;
        if (state.outcomes.size() > most)
            state.outcomes.erase(state.outcomes.begin(),
                                 state.outcomes.end() - static_cast<std::ptrdiff_t>(most));
        if (event.done + event.failed == 1 && !event.outcomes.empty()) {
            say(state, state.outcomes.back().text, event.failed > 0);
        } else if (!event.outcomes.empty()) {
            std::string text = event.title + ": " +
                               countedText(static_cast<std::int64_t>(event.done), "item", "items") + " done";
            if (event.freed > 0)
                text += ", " + sizeText(event.freed) + " freed";
            if (event.failed > 0)
                text += ", " + groupedNumber(static_cast<std::int64_t>(event.failed)) + " not: see Outcomes";
            say(state, text, event.failed > 0);
        }
        if (event.changes != nullptr) {
            if (state.isScanning())
                state.meanwhile.since.push_back(event.changes);
            if (state.tree != nullptr) {
                state.unfollowed.push_back(std::move(event.changes));
                followSoon();
            }
        }
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
    void followSoon() const {
        if (state.unfollowed.empty() || state.followAwaited != 0)
            return;
        TreeNotes notes = state.notes();
        // Where a tree is another by now, each item has to be looked for in folders of any width.
        const bool isKnown = std::ranges::all_of(
            state.unfollowed, [&](const auto& each) { return each->nodes.tree == state.tree; });
        if (!isKnown || notes.areMany() || countOf(state.unfollowed) > fewItems)
            state.followAwaited =
                ask(state, BrowserJobs::Follow{state.tree, std::move(notes), state.unfollowed, state.folder});
        else
            takeChanges(followed(state.tree, std::move(notes), state.unfollowed, state.folder),
                        state.unfollowed.size());
    }

    void operator()(BrowserEvents::Followed& event) const {
        const bool isAwaited = event.id == state.followAwaited;
        state.followAwaited = isAwaited ? 0 : state.followAwaited;
        if (!isAwaited || event.tree != state.tree || !event.changes.before.areSame(state.notes())) {
            dropAnswer(std::move(event.tree), std::move(event.changes.now.removals));
        } else {
            takeChanges(std::move(event.changes), event.changeCount);
            refreshView(state);
        }
        followSoon(); // once more, if something has come in between
    }

    /// `count` of the acts that wait for it.
    void takeChanges(FollowedChanges changes, std::size_t count) const {
        const auto end = state.unfollowed.begin() + static_cast<std::ptrdiff_t>(count);
        const ChangeList done(state.unfollowed.begin(), end);
        state.unfollowed.erase(state.unfollowed.begin(), end);
        discard(state, done);
        // A scan under way may miss what came back before it began, elsewhere.
        if (state.isScanning())
            std::ranges::copy_if(done, std::back_inserter(state.meanwhile.before),
                                 [](const auto& each) { return !each->items.back.empty(); });
        if (changes.before.areMany())
            discard(state, {state.removals});
        state.removals = std::move(changes.now.removals);
        state.marks = std::move(changes.now.marks);
        RemovedNodesQuery gone(state.removals->nodes());
        const auto isGone = [&](const FileNode* node) { return gone.containsNodeOrAncestor(*node); };
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
        followFound(isGone, changes.isAnythingBack);
        leaveOutDuplicates(isGone);
        compareAgain();
        callOff(state, state.findings.awaited);
        state.findings.forget();
        // What was reckoned with it is asked for anew.
        callOff(state, state.rules.awaited);
        state.rules.forget();
        const auto isEntry = [&](const FileNode* node) {
            return node != nullptr && node->parent() == state.folder && !isGone(node);
        };
        state.wantedEntry = isEntry(changes.lastBack)    ? changes.lastBack
                            : isEntry(state.wantedEntry) ? state.wantedEntry
                                                         : nullptr;
        relist(state);
        marksChanged(state);
        state.unread = commonFolder(state.unread, changes.unread);
        if (!state.isScanning() && state.unread != nullptr)
            scanAgain(state, *std::exchange(state.unread, nullptr));
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
            discard(state, std::exchange(state.meanwhile.since, {}));
            discard(state, std::exchange(state.meanwhile.before, {}));
            if (const FileNode* unread = std::exchange(state.unread, nullptr))
                scanAgain(state, *unread);
        } else if (event.id == state.lookAwaited) {
            state.lookAwaited = 0;
            state.held.clear();
        } else if (event.id == state.waysOutAwaited) {
            state.waysOutAwaited = 0;
            state.held.clear();
        } else if (event.id == state.followAwaited) {
            // Read again, everything shows by itself what is there.
            state.followAwaited = 0;
            discard(state, std::exchange(state.unfollowed, {}));
            if (!state.isScanning() && state.tree != nullptr)
                scanAgain(state, state.tree->root());
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
