#include "TarnwellTidyKit/Browser/BrowserPaths.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/UpdateParts.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tarnwell::BrowserParts {

namespace {

/// Folders of up to so many entries are put in order at once, without anybody noticing.
constexpr std::size_t largestQuickFolder = 4000;
template <class Value, class Job>
void load(BrowserState& state, Loaded<Value>& loaded, const void* subject, Job job) {
    if (loaded.subject == subject && (loaded.value || loaded.isLoading() || !loaded.failure.empty()))
        return;
    callOff(state, loaded.awaited);
    loaded = {};
    loaded.subject = subject;
    loaded.awaited = ask(state, std::move(job));
}

/// Those of the settings may be older: they are stored when what was begun before is done.
std::optional<std::vector<CleanupRule>> editedRules(const BrowserState& state) {
    return state.areRulesEdited ? std::optional(state.ruleList) : std::nullopt;
}

} // namespace

std::uint64_t ask(BrowserState& state, BrowserJob job) {
    const std::uint64_t id = ++state.lastRequest;
    if (const std::string_view title = titleOf(job); !title.empty())
        state.running.push_back({id, std::string(title), {}, laneOf(job)});
    state.requests.push_back({id, std::move(job)});
    return id;
}

void callOff(BrowserState& state, std::uint64_t& awaited) {
    if (awaited == 0)
        return;
    state.cancellations.push_back(awaited);
    std::erase_if(state.running, [&](const RunningJob& job) { return job.id == awaited; });
    awaited = 0;
}

void say(BrowserState& state, std::string text, bool isFailure) {
    state.message = std::move(text);
    state.messageIsFailure = isFailure;
}

/// What is not shown any more goes away from the keys.
void discard(BrowserState& state, std::vector<std::shared_ptr<const void>> things) {
    std::erase(things, nullptr);
    if (!things.empty())
        ask(state, BrowserJobs::Discard{std::move(things)});
}

void discard(BrowserState& state, const ChangeList& changes) {
    // Each holds a tree, perhaps as the last one.
    if (countOf(changes) > fewItems ||
        std::ranges::any_of(changes, [&](const auto& each) { return each->nodes.tree != state.tree; }))
        discard(state, std::vector<std::shared_ptr<const void>>(changes.begin(), changes.end()));
}

namespace {

/// Asks what the scan under way has of the folder.
void lookAtScan(BrowserState& state) {
    callOff(state, state.lookAwaited);
    state.lookAwaited = ask(state, BrowserJobs::Look{state.live, state.folder, state.choice});
}

void beginScan(BrowserState& state) {
    callOff(state, state.scanAwaited);
    callOff(state, state.lookAwaited);
    discard(state, {std::move(state.live)});
    state.live = nullptr;
    state.nextLook = 0;
    state.progress = {};
    // What went is not there to be read. What came back lies perhaps elsewhere.
    const ChangeList changes = std::exchange(state.meanwhile.since, {});
    std::ranges::copy_if(changes, std::back_inserter(state.meanwhile.before),
                         [](const auto& each) { return !each->items.back.empty(); });
    discard(state, changes);
    state.wantedRoot.clear();
}

} // namespace

void scanAgain(BrowserState& state, const FileNode& folder) {
    beginScan(state);
    state.scanAwaited = ask(state, BrowserJobs::Rescan{state.tree, &folder, state.marks});
}

void scanProgressed(BrowserState& state) {
    if (state.tree == nullptr && state.live != nullptr && state.lookAwaited == 0 &&
        state.progress.elapsed >= state.nextLook)
        lookAtScan(state);
}

void takeLook(BrowserState& state, BrowserEvents::Looked& event) {
    // A folder of a million entries takes a while to put in order: looking is at most a twentieth of the
    // time.
    constexpr double pause = 20;
    state.nextLook = state.progress.elapsed + pause * event.seconds;
    if (event.entries == nullptr) {
        state.held.clear(); // they meant rows that there are not
        return;
    }
    state.entries = std::move(event.entries);
    if (state.folder == nullptr)
        state.folder = state.entries->folder().node;
    takeOrder(state, std::move(event.order));
}

namespace {

/// Another tree: nothing of the old one has a meaning.
void leaveTree(BrowserState& state) {
    callOff(state, state.orderAwaited);
    callOff(state, state.followAwaited);
    discard(state, std::exchange(state.unfollowed, {}));
    state.unread = nullptr;
    state.folder = nullptr;
    discard(state, {std::move(state.entries), std::move(state.order), std::move(state.tree)});
    state.entries = nullptr;
    state.order = nullptr;
    state.selectedNode = nullptr;
    state.wantedEntry = nullptr;
    state.cursors = {};
    state.tree = nullptr;
    state.removals = std::make_shared<Removals>();
    state.marks.clear();
    state.choice.filter.clear();
    state.choice.earlier = nullptr;
    forgetFindings(state);
}

} // namespace

void scan(BrowserState& state, const std::string& folder) {
    beginScan(state);
    if (state.tree == nullptr) {
        leaveTree(state);
        state.rootPath = folder;
    } else if (folder != state.rootPath) {
        state.wantedRoot = folder; // which may not be there, so what is shown stays for now
    }
    state.scanAwaited = ask(state, BrowserJobs::Scan{folder});
}

void scanHasBegun(BrowserState& state) {
    if (state.wantedRoot.empty())
        return;
    leaveTree(state);
    state.rootPath = std::exchange(state.wantedRoot, {});
}

void forgetFindings(BrowserState& state) {
    const auto forget = [&](auto& loaded) {
        callOff(state, loaded.awaited);
        loaded.forget();
    };
    forget(state.freed);
    forget(state.map);
    forget(state.figures);
    forget(state.found);
    state.foundBy.reset();
    forget(state.findings);
    forget(state.rules);
    forget(state.tried);
    forget(state.duplicates);
    state.duplicateRows.clear();
    forget(state.changes);
    forget(state.ledger);
    forget(state.history);
    state.rangeStart.reset();
}

void visit(BrowserState& state, const FileNode* folder, const FileNode* entry) {
    if (folder != state.folder)
        state.choice.filter.clear();
    state.folder = folder;
    state.wantedEntry = entry;
    state.tile = 0;
    state.cursors[static_cast<std::size_t>(BrowserView::list)] = {};
    state.rangeStart.reset();
    state.entries = nullptr;
    state.order = nullptr;
    relist(state);
    refreshView(state);
}

void relist(BrowserState& state) {
    if (state.tree != nullptr && state.folder != nullptr)
        state.entries = std::make_shared<TreeEntries>(state.tree->rootOwner(), *state.folder, state.removals);
    else if (state.live != nullptr) {
        lookAtScan(state);
        return;
    }
    if (state.entries == nullptr)
        return;
    const std::string place = state.choice.earlier ? placeOf(state, state.folder) : std::string();
    callOff(state, state.orderAwaited);
    if (state.entries->count() <= largestQuickFolder) {
        takeOrder(state, std::make_shared<Ordering>(ordered(*state.entries, state.choice, place)));
        return;
    }
    if (state.order == nullptr) {
        // Something to look at meanwhile: as the tree has it, the largest first.
        auto order = std::make_shared<Ordering>();
        order->rows.reserve(state.entries->count());
        for (std::uint32_t index = 0; index < state.entries->count(); ++index)
            if (!state.entries->isGone(index))
                order->rows.push_back(index);
        order->total = state.entries->folder().sizeFor(state.choice.mode);
        order->largest = state.entries->at(0).sizeFor(state.choice.mode);
        state.order = std::move(order);
    }
    state.orderAwaited = ask(state, BrowserJobs::Order{state.entries, state.choice, place});
}

void takeOrder(BrowserState& state, std::shared_ptr<const Ordering> order) {
    BrowserCursor& cursor = state.cursors[static_cast<std::size_t>(BrowserView::list)];
    const FileNode* wanted = state.wantedEntry;
    if (wanted == nullptr && cursor.isMoved && state.order != nullptr && state.entries != nullptr &&
        cursor.row < state.order->rows.size() && state.order->rows[cursor.row] < state.entries->count())
        wanted = state.selectedNode;
    state.order = std::move(order);
    const auto rowOf = [&](const FileNode* node) -> std::optional<std::size_t> {
        if (node == nullptr || state.entries == nullptr)
            return std::nullopt;
        // First the number, then its row: either is one pass over memory in its order.
        const std::vector<std::uint32_t>& rows = state.order->rows;
        std::uint32_t index = 0;
        while (index < state.entries->count() && state.entries->nodeAt(index) != node)
            ++index;
        const auto found = std::ranges::find(rows, index);
        return found == rows.end() ? std::nullopt
                                   : std::optional(static_cast<std::size_t>(found - rows.begin()));
    };
    // Rows are others now. While a scan brings them again and again, a range goes on from its item; what was
    // asked for ends it.
    if (state.rangeStart)
        state.rangeStart = state.tree == nullptr ? rowOf(state.rangeNode) : std::nullopt;
    if (const auto row = rowOf(wanted)) {
        // Where it was on the screen, if it can be.
        const std::size_t above = cursor.row - std::min(cursor.row, cursor.top);
        cursor = {.row = *row, .top = *row - std::min(*row, above), .isMoved = true};
    }
    state.wantedEntry = nullptr;
    settle(state);
}

void showView(BrowserState& state, BrowserView view) {
    state.view = view;
    state.rangeStart.reset();
    // What may have changed meanwhile is asked for anew.
    if (view == BrowserView::volumes && !state.volumes.isLoading())
        state.volumes.subject = nullptr;
    if (view == BrowserView::volumes && !state.ledger.isLoading())
        state.ledger.forget();
    if (view == BrowserView::trash && !state.trash.isLoading())
        state.trash.forget();
    refreshView(state);
}

void refreshView(BrowserState& state) {
    using namespace BrowserJobs;
    switch (state.view) {
    case BrowserView::volumes:
        if (state.volumes.subject == nullptr && !state.volumes.isLoading()) {
            state.volumes.subject = &state;
            state.volumes.awaited = ask(state, Volumes{});
        }
        if (state.tree != nullptr)
            load(state, state.ledger, state.tree.get(), Ledger{state.tree, state.removals});
        break;
    case BrowserView::trash:
        load(state, state.trash, &state, TrashList{});
        break;
    case BrowserView::history:
        if (!state.rootPath.empty())
            load(state, state.history, state.tree.get(), History{state.rootPath});
        break;
    default:
        break;
    }
    if (state.tree == nullptr || state.folder == nullptr) {
        settle(state);
        return;
    }
    switch (state.view) {
    case BrowserView::map:
        load(state, state.map, state.folder,
             Map{state.tree, state.folder, state.removals, state.choice.mode, state.mapWidth,
                 state.mapHeight});
        break;
    case BrowserView::largest:
    case BrowserView::categories:
    case BrowserView::ages:
        load(state, state.figures, state.folder,
             Figures{state.tree, state.folder, state.removals, state.choice.mode});
        break;
    case BrowserView::changes:
        load(state, state.changes, state.tree.get(),
             Changes{state.tree, state.removals, state.choice.mode, state.snapshotNumber});
        break;
    case BrowserView::findings:
        load(state, state.findings, state.tree.get(),
             Findings{state.tree, state.removals, editedRules(state)});
        break;
    case BrowserView::rules:
        load(state, state.rules, state.tree.get(), Rules{state.tree, state.removals, editedRules(state)});
        break;
    default:
        break;
    }
    settle(state);
}

void settle(BrowserState& state) {
    BrowserCursor& cursor = state.cursor();
    const std::size_t count = rowCount(state);
    cursor.row = count == 0 ? 0 : std::min(cursor.row, count - 1);
    const std::size_t seen = std::max<std::size_t>(state.rowsSeen, 1);
    cursor.top = std::min(cursor.top, count > seen ? count - seen : 0);
    if (cursor.row < cursor.top)
        cursor.top = cursor.row;
    else if (cursor.row >= cursor.top + seen)
        cursor.top = cursor.row - seen + 1;
    if (state.view == BrowserView::list) {
        const auto entry = entryAt(state, cursor.row);
        state.selectedNode = entry ? entry->node : nullptr;
    }
}

} // namespace tarnwell::BrowserParts

namespace tarnwell {

using namespace BrowserParts;

namespace {

/// Whether the item where one stands is none of the rows that are awaited: one of them will be selected then.
bool isSelectionStale(const BrowserState& state) {
    const FileNode* node = state.selectedNode;
    return node != nullptr &&
           (state.removals->isGone(*node) || !passes(state.choice, node->name(), node->flags));
}

/// Whether the key acts on what is not known yet. What was typed ahead behind a filter means the rows that it
/// leaves; a word that was typed ahead is no row of commands.
bool mustWait(const BrowserState& state, const KeyPress& press) {
    if (!state.held.empty() || state.waysOutAwaited != 0)
        return true;
    if ((state.orderAwaited == 0 && state.lookAwaited == 0) || state.view != BrowserView::list ||
        state.prompt || state.question || state.showsHelp)
        return false;
    switch (commandOf(press, state)) {
    case BrowserCommand::markAll:
    case BrowserCommand::range:
        return true;
    case BrowserCommand::enter:
    case BrowserCommand::mark:
    case BrowserCommand::trash:
    case BrowserCommand::removeForGood:
    case BrowserCommand::evict:
    case BrowserCommand::open:
    case BrowserCommand::reveal:
    case BrowserCommand::copyPath:
        return isSelectionStale(state);
    default:
        return false;
    }
}

} // namespace

void begin(BrowserState& state, const std::string& folder) {
    if (folder.empty()) {
        showView(state, BrowserView::volumes);
        return;
    }
    if (state.view == BrowserView::volumes)
        state.view = BrowserView::list;
    scan(state, folder);
    refreshView(state);
}

void setRoom(BrowserState& state, std::size_t rowsSeen, double mapWidth, double mapHeight) {
    state.rowsSeen = rowsSeen;
    if (mapWidth != state.mapWidth || mapHeight != state.mapHeight) {
        state.mapWidth = mapWidth;
        state.mapHeight = mapHeight;
        state.map.subject = nullptr;
        if (state.view == BrowserView::map)
            refreshView(state);
    }
    settle(state);
}

void quit(BrowserState& state) {
    state.isDone = true;
    if (state.isReadOnly) // the settings are something, too
        return;
    BrowserMemory memory{.folder = state.rootPath.empty() ? state.lastFolder : folderPath(state),
                         .view = state.view,
                         .sort = state.choice.sort,
                         .mode =
                             state.choice.mode == state.chosenMode ? state.rememberedMode : state.choice.mode,
                         .showsHidden = state.choice.showsHidden,
                         .columns = state.columns};
    ask(state, BrowserJobs::Remember{std::move(memory)});
}

void update(BrowserState& state, const KeyPress& press) {
    if (press.key == Key::escape && (!state.held.empty() || state.waysOutAwaited != 0)) {
        callOff(state, state.waysOutAwaited);
        state.held.clear();
        say(state, "Called off.");
        return;
    }
    if (mustWait(state, press)) {
        state.held.push_back(press);
        if (state.waysOutAwaited == 0)
            say(state, "Waiting for the order of the list …");
        return;
    }
    state.message.clear();
    if (state.prompt) {
        typeInto(state, press);
    } else if (state.question) {
        answer(state, press);
    } else if (state.showsHelp) {
        const BrowserCommand command = commandOf(press, state);
        if (command == BrowserCommand::down || command == BrowserCommand::pageDown)
            state.helpTop += command == BrowserCommand::down ? 1 : std::max<std::size_t>(state.rowsSeen, 1);
        else if (command == BrowserCommand::up || command == BrowserCommand::pageUp)
            state.helpTop -=
                std::min(state.helpTop, command == BrowserCommand::up ? std::size_t{1} : state.rowsSeen);
        else
            state.showsHelp = false;
    } else {
        run(state, commandOf(press, state));
    }
    settle(state);
}

void BrowserParts::takeHeldKeys(BrowserState& state) {
    if (state.orderAwaited != 0 || state.lookAwaited != 0 || state.waysOutAwaited != 0 || state.held.empty())
        return;
    for (const KeyPress& press : std::exchange(state.held, {}))
        update(state, press);
}

void update(BrowserState& state, const Pasted& pasted) {
    if (state.prompt)
        typeText(state, pasted.text);
}

void update(BrowserState& state, const BrowserClick& click) {
    state.held.clear(); // they were meant for what was shown
    callOff(state, state.waysOutAwaited);
    state.message.clear();
    if (state.prompt || state.question)
        return;
    if (state.showsHelp) {
        state.showsHelp = false;
        return;
    }
    switch (click.kind) {
    case BrowserClick::Kind::view:
        if (click.number < browserViewCount)
            showView(state, static_cast<BrowserView>(click.number));
        break;
    case BrowserClick::Kind::tile:
        if (std::exchange(state.tile, click.number) == click.number)
            run(state, BrowserCommand::enter);
        break;
    case BrowserClick::Kind::row:
        if (click.number < rowCount(state)) {
            if (state.cursor().row == click.number && state.cursor().isMoved)
                run(state, BrowserCommand::enter);
            else
                moveTo(state, click.number);
        }
        break;
    }
    settle(state);
}

void scroll(BrowserState& state, std::ptrdiff_t rows) {
    if (state.prompt || state.question)
        return;
    if (state.showsHelp) {
        state.helpTop = rows < 0 ? state.helpTop - std::min(state.helpTop, static_cast<std::size_t>(-rows))
                                 : state.helpTop + static_cast<std::size_t>(rows);
        return;
    }
    const std::size_t row = state.cursor().row;
    moveTo(state, rows < 0 ? row - std::min(row, static_cast<std::size_t>(-rows))
                           : row + static_cast<std::size_t>(rows));
    settle(state);
}

} // namespace tarnwell
