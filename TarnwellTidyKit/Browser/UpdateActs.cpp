#include "TarnwellTidyKit/Browser/TypedText.hpp"
#include "TarnwellTidyKit/Browser/UpdateParts.hpp"
#include "TarnwellTidyKit/Commands/FindingsCommand.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <utility>

namespace tarnwell::BrowserParts {

namespace {

using enum BrowserCommand;

/// What an act is about: what is marked, else the item where one stands.
std::vector<const FileNode*> actedOn(const BrowserState& state) {
    std::vector<const FileNode*> nodes = state.marks.nodes();
    if (nodes.empty()) {
        const auto item = target(state);
        if (item && item->node != nullptr)
            nodes.push_back(item->node);
    }
    return nodes;
}

/// The first lines of a question: the largest items. Puts those first.
std::vector<std::string> linesOf(const BrowserState& state, std::vector<const FileNode*>& nodes) {
    constexpr std::size_t shown = 6;
    const SizeMode mode = state.choice.mode;
    std::ranges::partial_sort(nodes.begin(),
                              nodes.begin() + static_cast<std::ptrdiff_t>(std::min(shown, nodes.size())),
                              nodes.end(), [mode](const FileNode* a, const FileNode* b) {
                                  return a->sizeFor(mode) != b->sizeFor(mode)
                                             ? a->sizeFor(mode) > b->sizeFor(mode)
                                             : a->name() < b->name();
                              });
    std::vector<std::string> lines;
    for (std::size_t index = 0; index < std::min(shown, nodes.size()); ++index)
        lines.push_back(sizeText(nodes[index]->sizeFor(state.choice.mode)) + "  " +
                        shortPath(state, nodes[index]->path()));
    if (nodes.size() > shown)
        lines.push_back("and " + groupedNumber(static_cast<std::int64_t>(nodes.size() - shown)) + " more");
    return lines;
}

std::string counted(std::size_t count) {
    return countedText(static_cast<std::int64_t>(count), "item", "items");
}

/// The reason why one of them must stay; says it.
bool mustStay(BrowserState& state, const std::vector<const FileNode*>& nodes) {
    for (const FileNode* node : nodes)
        if (const std::string_view reason = reasonToStay(state, *node); !reason.empty()) {
            say(state, std::string(node->displayName()) + " stays: " + std::string(reason), true);
            return true;
        }
    return false;
}

void toTrash(BrowserState& state) {
    auto nodes = actedOn(state);
    if (nodes.empty() || mustStay(state, nodes))
        return;
    if (!state.asksBeforeTrash) {
        ask(state, BrowserJobs::Trash{{state.tree, std::move(nodes)}});
        return;
    }
    BrowserQuestion question{.title = "Move " + counted(nodes.size()) + " to the Trash?",
                             .lines = linesOf(state, nodes)};
    question.job = BrowserJobs::Trash{{state.tree, std::move(nodes)}};
    state.question = std::move(question);
}

void removeThem(BrowserState& state) {
    auto nodes = actedOn(state);
    if (nodes.empty() || mustStay(state, nodes))
        return;
    say(state, "Looking whether there is a Trash …");
    state.waysOutAwaited = ask(state, BrowserJobs::FindWaysOut{{state.tree, std::move(nodes)}});
}

void evictThem(BrowserState& state) {
    auto nodes = actedOn(state);
    if (nodes.empty())
        return;
    BrowserQuestion question{.title = "Free the local copies of cloud files in " + counted(nodes.size()) +
                                      "? They stay in the cloud.",
                             .lines = linesOf(state, nodes)};
    question.job = BrowserJobs::Evict{{state.tree, std::move(nodes)}, state.removals};
    state.question = std::move(question);
}

void shareThem(BrowserState& state) {
    const DuplicateResult& result = **state.duplicates.value;
    const DuplicateRow& row = state.duplicateRows[state.cursor().row];
    const DuplicateGroup& group = result.groups[row.group];
    state.question = BrowserQuestion{
        .title = "Let " + countedText(static_cast<std::int64_t>(group.files.size()), "copy", "copies") +
                 " share their blocks? Each stays a file of its own.",
        .lines = {"frees up to " + sizeText(group.waste),
                  shortPath(state, group.members.front().node->path())},
        .job = BrowserJobs::Share{{SharingRequest::of(group)}}};
}

void applyFinding(BrowserState& state) {
    const SpaceSaverFinding& finding = (*state.findings.value)[state.cursor().row];
    std::vector<std::string> lines = {std::string(displayName(finding.safety)) + ": " +
                                      actionText(finding.action)};
    for (const auto& path : finding.paths) {
        if (lines.size() == 6) {
            lines.push_back("and " + std::to_string(finding.paths.size() + 1 - lines.size()) + " more");
            break;
        }
        lines.push_back(shortPath(state, path.native()));
    }
    if (std::holds_alternative<SpaceSaverActions::EmptyTrash>(finding.action)) {
        openPrompt(state, {.kind = BrowserPrompt::Kind::word,
                           .title = "Empty the Trash? This cannot be undone. Type: empty",
                           .word = "empty",
                           .job = BrowserJobs::EmptyTrash{}});
        return;
    }
    state.question = BrowserQuestion{.title = finding.title + ": do this?",
                                     .lines = lines,
                                     .job = BrowserJobs::Clear{finding, state.tree}};
}

/// Marks a node, or takes its mark off. Says why it cannot be marked.
void toggle(BrowserState& state, const FileNode& node) {
    if (state.marks.remove(node))
        return;
    if (const std::string_view reason = reasonToStay(state, node); !reason.empty())
        say(state, std::string(node.displayName()) + " cannot be marked: " + std::string(reason), true);
    else if (!state.marks.add(node))
        say(state, "A folder above it is marked.", true);
}

void markRows(BrowserState& state, std::size_t begin, std::size_t end) {
    std::size_t refused = 0;
    std::vector<const FileNode*> children; // of the folder, which may hold very many
    const bool isList = state.view == BrowserView::list;
    const bool isChecked = !isList || state.tree != nullptr || state.homeFolder == nullptr ||
                           mayHoldWhatStays(folderPath(state), *state.homeFolder);
    children.reserve(isList ? end - begin : 0);
    for (std::size_t row = begin; row < end; ++row) {
        const FileNode* node = nullptr;
        if (isList)
            node = state.entries->nodeAt(state.order->rows[row]);
        else if (const auto item = targetAt(state, row))
            node = item->node;
        if (node == nullptr)
            continue;
        if (isChecked && !reasonToStay(state, *node).empty())
            ++refused;
        else if (isList)
            children.push_back(node);
        else
            state.marks.add(*node);
    }
    if (!children.empty())
        state.marks.addChildren(*state.folder, children);
    if (refused > 0)
        say(state, counted(refused) + " cannot be marked: the system expects them.", true);
}

} // namespace

void askForWord(BrowserState& state, BrowserJobs::TreeItems items, std::size_t forTrash, std::size_t stuck) {
    const std::size_t count = items.nodes.size();
    state.message.clear();
    if (count == 0)
        state.held.clear(); // what was typed ahead was a word
    if (count == 0 && forTrash == 0) {
        say(state, "Nothing was deleted: it cannot be taken out of its folder.", true);
    } else if (count == 0) {
        say(state, forTrash == 1 ? "Nothing was deleted: there is a Trash here. d moves it there."
                                 : "Nothing was deleted: there is a Trash here. d moves them there.");
    } else {
        std::string title = "Delete " + counted(count) + " for good? This cannot be undone. Type: delete";
        if (forTrash + stuck > 0)
            title = "Delete " + groupedNumber(static_cast<std::int64_t>(count)) + " of " +
                    counted(count + forTrash + stuck) + " for good: those without a Trash? Type: delete";
        BrowserPrompt prompt{.kind = BrowserPrompt::Kind::word,
                             .title = std::move(title),
                             .word = "delete",
                             .lines = linesOf(state, items.nodes)};
        prompt.job = BrowserJobs::Remove{std::move(items)};
        openPrompt(state, std::move(prompt));
    }
}

void changeRules(BrowserState& state, BrowserJobs::ChangeRules change) {
    std::vector<CleanupRule> rules = state.ruleList;
    change.applyTo(rules);
    state.areRulesEdited = true;
    state.rulesStoring = ask(state, std::move(change));
    showRules(state, std::move(rules));
}

void showRules(BrowserState& state, std::vector<CleanupRule> rules) {
    BrowserCursor& cursor = state.cursors[static_cast<std::size_t>(BrowserView::rules)];
    if (cursor.row < state.ruleList.size()) { // it stays on its rule
        const auto same = std::ranges::find(rules, state.ruleList[cursor.row].id, &CleanupRule::id);
        cursor.row = same == rules.end() ? cursor.row : static_cast<std::size_t>(same - rules.begin());
    }
    state.ruleList = std::move(rules);
    if (!state.rules.value)
        state.rules.value.emplace();
    state.rules.value->rules = state.ruleList;
    state.rules.subject = state.tree.get();
    callOff(state, state.rules.awaited);
    if (state.tree != nullptr)
        state.rules.awaited = ask(state, BrowserJobs::Rules{state.tree, state.removals, state.ruleList});
}

void marksChanged(BrowserState& state) {
    callOff(state, state.freed.awaited);
    state.freed.forget();
    if (state.tree != nullptr && !state.marks.isEmpty())
        state.freed.awaited = ask(state, BrowserJobs::Freed{state.tree, state.marks, state.removals});
}

bool runAct(BrowserState& state, BrowserCommand command) {
    switch (command) {
    case mark:
        if (state.rangeStart) {
            const std::size_t row = state.cursor().row;
            markRows(state, std::min(*state.rangeStart, row),
                     std::min(std::max(*state.rangeStart, row) + 1, rowCount(state)));
            state.rangeStart.reset();
        } else if (const auto item = target(state); item && item->node != nullptr) {
            toggle(state, *item->node);
            if (state.view != BrowserView::map)
                moveTo(state, state.cursor().row + 1);
        }
        marksChanged(state);
        return true;
    case range:
        if (state.rangeStart)
            return runAct(state, mark);
        state.rangeStart = state.cursor().row;
        if (const auto item = target(state))
            state.rangeNode = item->node;
        say(state, "Go to the other end of the range, then Space.");
        return true;
    case markAll:
        markRows(state, 0, rowCount(state));
        marksChanged(state);
        return true;
    case unmark:
        state.marks.clear();
        marksChanged(state);
        return true;
    case trash:
        toTrash(state);
        return true;
    case undo:
        ask(state, BrowserJobs::Undo{state.tree});
        return true;
    case removeForGood:
        removeThem(state);
        return true;
    case evict:
        evictThem(state);
        return true;
    case share:
        shareThem(state);
        return true;
    case apply:
        applyFinding(state);
        return true;
    case restore:
        ask(state, BrowserJobs::Restore{{target(state)->path}, state.tree});
        return true;
    case emptyTrash:
        openPrompt(state, {.kind = BrowserPrompt::Kind::word,
                           .title = "Delete all of the Trash for good? This cannot be undone. Type: empty",
                           .word = "empty",
                           .job = BrowserJobs::EmptyTrash{}});
        return true;
    case open:
        ask(state, BrowserJobs::Open{target(state)->path});
        return true;
    case reveal:
        ask(state, BrowserJobs::Reveal{target(state)->path});
        return true;
    case copyPath:
        state.wishes.push_back({ScreenWish::Kind::copy, target(state)->path});
        return true;
    case shell:
        state.wishes.push_back({ScreenWish::Kind::shell, folderPath(state)});
        return true;
    case snapshot:
        ask(state, BrowserJobs::TakeSnapshot{state.tree, state.removals});
        return true;
    case editRule:
        openRule(state, state.cursor().row);
        return true;
    case newRule:
        openRule(state, std::nullopt);
        return true;
    case toggleRule: {
        const CleanupRule& rule = state.rules.value->rules[state.cursor().row];
        changeRules(state, {.kind = rule.isEnabled ? BrowserJobs::ChangeRules::Kind::disable
                                                   : BrowserJobs::ChangeRules::Kind::enable,
                            .rule = rule});
        return true;
    }
    case dropRule: {
        const CleanupRule& rule = state.rules.value->rules[state.cursor().row];
        state.question = BrowserQuestion{
            .title = "Drop the rule " + rule.name + "?",
            .lines = {ruleText(rule)},
            .job = BrowserJobs::ChangeRules{.kind = BrowserJobs::ChangeRules::Kind::drop, .rule = rule}};
        return true;
    }
    default:
        return false;
    }
}

} // namespace tarnwell::BrowserParts
