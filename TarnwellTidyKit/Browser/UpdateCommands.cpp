#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/UpdateParts.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tarnwell::BrowserParts {

namespace {

using enum BrowserCommand;

/// Tab leaves out what has nothing to show.
bool isReachable(const BrowserState& state, BrowserView view) {
    if (view == BrowserView::found)
        return state.found.value || state.found.isLoading();
    if (view == BrowserView::outcomes)
        return !state.outcomes.empty();
    return true;
}

void turnView(BrowserState& state, std::size_t step) {
    std::size_t number = static_cast<std::size_t>(state.view);
    do
        number = (number + step) % browserViewCount;
    while (!isReachable(state, static_cast<BrowserView>(number)));
    showView(state, static_cast<BrowserView>(number));
}

void sortBy(BrowserState& state, SortKey key) {
    SortChoice& sort = state.choice.sort;
    sort.isReversed = sort.key == key && !sort.isReversed;
    sort.key = key;
    relist(state);
}

void setMode(BrowserState& state, SizeMode mode) {
    state.choice.mode = mode;
    state.map.subject = nullptr;
    state.figures.subject = nullptr;
    callOff(state, state.changes.awaited);
    state.changes.forget();
    relist(state);
    refreshView(state);
}

void toggleColumn(BrowserState& state, BrowserColumn column) {
    state.columns ^= static_cast<unsigned>(column);
    if (column != BrowserColumn::change && hasRoomForAll(state.mapWidth))
        say(state, std::string("There is room for every column; on a narrower screen this one is ") +
                       (state.has(column) ? "shown." : "left out."));
    if (column == BrowserColumn::change && state.has(column) && !state.choice.earlier) {
        if (!state.changes.isLoading() && state.tree != nullptr) {
            state.changes.forget();
            state.changes.subject = state.tree.get();
            state.changes.awaited = ask(state, BrowserJobs::Changes{state.tree, state.removals,
                                                                    state.choice.mode, state.snapshotNumber});
        }
    }
}

void compareWith(BrowserState& state, std::size_t number) {
    state.snapshotNumber = number;
    callOff(state, state.changes.awaited);
    state.changes.forget();
    state.cursor() = {};
    refreshView(state);
}

/// Shows an item of the tree in its folder.
void jumpTo(BrowserState& state, const FileNode& node) {
    state.view = BrowserView::list;
    if (node.parent() == nullptr) {
        visit(state, &node, nullptr);
        return;
    }
    if (!state.choice.showsHidden && node.isHidden())
        state.choice.showsHidden = true;
    visit(state, node.parent(), &node);
}

void enterRow(BrowserState& state) {
    const std::size_t row = state.cursor().row;
    switch (state.view) {
    case BrowserView::list: {
        const auto entry = entryAt(state, row);
        if (!entry || entry->node == nullptr)
            return;
        if (!entry->isDirectory || entry->flags.contains(FileNodeFlags::excluded))
            state.togglesDetails = !state.togglesDetails;
        else
            visit(state, entry->node, nullptr);
        return;
    }
    case BrowserView::map: {
        const auto tile = target(state);
        if (tile && tile->isDirectory)
            visit(state, tile->node, nullptr);
        else if (tile && tile->node != nullptr)
            jumpTo(state, *tile->node);
        return;
    }
    case BrowserView::categories: {
        const FileCategory category = categoryRows(state)[row];
        findBy(state, {.categories = {category}, .kinds = {SearchKind::file}},
               "category " + std::string(displayName(category)));
        return;
    }
    case BrowserView::ages: {
        constexpr double month = 30 * 86'400.0;
        constexpr double year = 365 * 86'400.0;
        const Date now = state.now();
        const std::array<DateRange, 3> ranges = {
            DateRange::newerThan(month, now),
            DateRange{.from = now - Date::duration(year), .before = now - Date::duration(month)},
            DateRange::olderThan(year, now)};
        constexpr std::array<std::string_view, 3> names = {"modified within 30 days",
                                                           "modified within a year", "older than a year"};
        if (row < ranges.size())
            findBy(state, {.modified = ranges[row], .kinds = {SearchKind::file}}, std::string(names[row]));
        return;
    }
    case BrowserView::rules: {
        const CleanupRule& rule = state.rules.value->rules[row];
        for (const RuleMatch& match : state.rules.value->matches)
            if (match.rule.id == rule.id) {
                callOff(state, state.found.awaited);
                state.found.forget();
                state.foundBy.reset();
                FoundItems& items = state.found.value.emplace();
                items.totals = {.count = match.itemCount,
                                .size = match.totalSize,
                                .reclaimableSize = match.reclaimableSize};
                for (const FileNode* node : match.nodes) {
                    items.totals.allocatedSize += node->allocatedSize;
                    if (!state.removals->isGoneWithItsFolders(*node))
                        items.nodes.push_back(node);
                }
                state.foundText = "rule " + rule.name;
                showView(state, BrowserView::found);
                return;
            }
        say(state, rule.isEnabled ? "The rule matches nothing here." : "The rule is off.");
        return;
    }
    case BrowserView::volumes:
        if (const auto volume = target(state)) {
            state.view = BrowserView::list;
            scan(state, volume->path);
        }
        return;
    default:
        if (const auto item = target(state)) {
            if (item->node != nullptr)
                jumpTo(state, *item->node);
            else
                say(state, "It is not in this scan any more.");
        }
    }
}

void lookForDuplicates(BrowserState& state) {
    callOff(state, state.duplicates.awaited);
    state.duplicates.forget();
    state.duplicateRows.clear();
    state.duplicates.subject = state.folder;
    state.duplicates.awaited = ask(state, BrowserJobs::Duplicates{state.tree, state.folder});
}

void cancelAll(BrowserState& state) {
    if (state.rangeStart) {
        state.rangeStart.reset();
    } else if (!state.choice.filter.empty()) {
        state.choice.filter.clear();
        relist(state);
    } else if (state.found.isLoading() || state.duplicates.isLoading() || state.findings.isLoading()) {
        const auto stop = [&](auto& loaded) {
            if (loaded.isLoading()) {
                callOff(state, loaded.awaited);
                loaded.failure = "Called off.";
            }
        };
        stop(state.found);
        stop(state.duplicates);
        stop(state.findings);
        say(state, "Called off.");
    } else if (state.view != BrowserView::list && state.folder != nullptr) {
        showView(state, BrowserView::list);
    }
}

bool runLook(BrowserState& state, BrowserCommand command) {
    switch (command) {
    case sortBySize:
        sortBy(state, SortKey::size);
        return true;
    case sortByName:
        sortBy(state, SortKey::name);
        return true;
    case sortByItems:
        sortBy(state, SortKey::items);
        return true;
    case sortByModified:
        sortBy(state, SortKey::modified);
        return true;
    case sortByNext: {
        const auto next =
            static_cast<SortKey>((static_cast<std::size_t>(state.choice.sort.key) + 1) % sortKeyCount);
        state.choice.sort.isReversed = false;
        state.choice.sort.key = next;
        if (next == SortKey::change && !state.choice.earlier && !state.has(BrowserColumn::change) &&
            state.tree != nullptr)
            toggleColumn(state, BrowserColumn::change);
        say(state, "Sorted by " + std::string(rawValue(next)) + ".");
        relist(state);
        return true;
    }
    case reverse:
        state.choice.sort.isReversed = !state.choice.sort.isReversed;
        relist(state);
        return true;
    case foldersFirst:
        state.choice.sort.foldersFirst = !state.choice.sort.foldersFirst;
        relist(state);
        return true;
    case hidden:
        state.choice.showsHidden = !state.choice.showsHidden;
        say(state, state.choice.showsHidden ? "Hidden items are shown." : "Hidden items are left out.");
        relist(state);
        return true;
    case sizeMode:
        setMode(state, static_cast<SizeMode>((static_cast<int>(state.choice.mode) + 1) % 3));
        return true;
    case itemsColumn:
        toggleColumn(state, BrowserColumn::items);
        return true;
    case modifiedColumn:
        toggleColumn(state, BrowserColumn::modified);
        return true;
    case sizesColumn:
        toggleColumn(state, BrowserColumn::sizes);
        return true;
    case changeColumn:
        toggleColumn(state, BrowserColumn::change);
        return true;
    case details:
        state.togglesDetails = !state.togglesDetails;
        return true;
    case older:
        compareWith(state, state.snapshotNumber + 1);
        return true;
    case newer:
        compareWith(state, state.snapshotNumber - 1);
        return true;
    case rescan:
        if (state.tree != nullptr && state.folder != nullptr)
            scanAgain(state, *state.folder);
        else
            scan(state, state.rootPath);
        return true;
    case filter:
        openPrompt(state, {.kind = BrowserPrompt::Kind::filter,
                           .title = "Filter",
                           .text = state.choice.filter,
                           .place = state.choice.filter.size()});
        return true;
    case find:
        if (state.tree == nullptr || state.isScanning())
            say(state, "The scan is still under way; the search needs all of it.", true);
        else
            openPrompt(state,
                       {.kind = BrowserPrompt::Kind::find,
                        .title = "Find",
                        .text = state.foundText.find(' ') == std::string::npos ? state.foundText : ""});
        return true;
    default:
        return false;
    }
}

/// Asks first when that would leave something half done.
void leaveProgram(BrowserState& state) {
    BrowserQuestion question{.title = "Leave? The file at hand is dealt with, the rest is not touched.",
                             .leaves = true};
    for (const RunningJob& job : state.running)
        if (job.lane == BrowserLane::act)
            question.lines.push_back(job.title + " " + job.text);
    if (question.lines.empty())
        tarnwell::quit(state);
    else
        state.question = std::move(question);
}

} // namespace

void findBy(BrowserState& state, SearchConditions conditions, std::string text) {
    conditions.sizeMode = state.choice.mode;
    callOff(state, state.found.awaited);
    state.found.forget();
    state.foundText = std::move(text);
    state.cursors[static_cast<std::size_t>(BrowserView::found)] = {};
    state.foundBy = std::move(conditions);
    state.foundIn = state.folder;
    findAgain(state);
    showView(state, BrowserView::found);
}

void findAgain(BrowserState& state) {
    callOff(state, state.found.awaited);
    state.found.awaited =
        ask(state, BrowserJobs::Find{state.tree, state.foundIn, *state.foundBy, state.removals});
}

void moveTo(BrowserState& state, std::size_t row) {
    state.cursor().row = row;
    state.cursor().isMoved = true;
    settle(state);
}

void run(BrowserState& state, BrowserCommand command) {
    if (command == none)
        return;
    const std::size_t row = state.cursor().row;
    const std::size_t page = std::max<std::size_t>(state.rowsSeen, 2) - 1;
    if (state.view == BrowserView::map && (command == up || command == down || command == left ||
                                           command == right || command == first || command == last)) {
        moveInMap(state, command);
        return;
    }
    switch (command) {
    case up:
        moveTo(state, row - std::min<std::size_t>(row, 1));
        return;
    case down:
        moveTo(state, row + 1);
        return;
    case pageUp:
        moveTo(state, row - std::min(row, page));
        return;
    case pageDown:
        moveTo(state, row + page);
        return;
    case first:
        moveTo(state, 0);
        return;
    case last:
        moveTo(state, std::max<std::size_t>(rowCount(state), 1) - 1);
        return;
    case nextView:
        turnView(state, 1);
        return;
    case previousView:
        turnView(state, browserViewCount - 1);
        return;
    case volumesView:
        showView(state, BrowserView::volumes);
        return;
    case help:
        state.showsHelp = true;
        state.helpTop = 0;
        return;
    case BrowserCommand::quit:
        leaveProgram(state);
        return;
    case cancel:
        cancelAll(state);
        return;
    case BrowserCommand::goTo:
        openPrompt(state, {.kind = BrowserPrompt::Kind::goTo, .title = "Folder"});
        return;
    default:
        break;
    }
    if (state.view == BrowserView::duplicates && command == enter && rowCount(state) == 0) {
        if (state.tree != nullptr && state.folder != nullptr && !state.duplicates.isLoading())
            lookForDuplicates(state);
        return;
    }
    if (!isAvailable(command, state)) {
        if (state.isReadOnly && command >= trash && command <= dropRule)
            say(state, "This browser only looks: it was started with --read-only.", true);
        else if (state.isScanning() && command >= mark && command <= dropRule)
            say(state, "The scan is still under way.", true);
        return;
    }
    if (command == enter) {
        enterRow(state);
    } else if (command == leave) {
        const FileNode* below = state.folder;
        visit(state, below->parent(), below);
    } else if (!runLook(state, command)) {
        (void)runAct(state, command);
    }
}

} // namespace tarnwell::BrowserParts
