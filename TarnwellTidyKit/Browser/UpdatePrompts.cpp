#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Text/Utf8.hpp"
#include "TarnwellTidyKit/Browser/BrowserPaths.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/TypedText.hpp"
#include "TarnwellTidyKit/Browser/UpdateParts.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"

#include <algorithm>
#include <utility>

namespace tarnwell::BrowserParts {

namespace {

using Kind = BrowserPrompt::Kind;

std::size_t placeBefore(std::string_view text, std::size_t place) {
    if (place == 0)
        return 0;
    --place;
    while (place > 0 && (static_cast<unsigned char>(text[place]) & 0xC0U) == 0x80U)
        --place;
    return place;
}

std::size_t placeBehind(std::string_view text, std::size_t place) {
    return place >= text.size() ? text.size() : place + firstUTF8Part(text.substr(place)).length;
}

/// What the text comes to already, while it is typed.
void textChanged(BrowserState& state) {
    BrowserPrompt& prompt = *state.prompt;
    prompt.note.clear();
    prompt.noteIsError = false;
    try {
        switch (prompt.kind) {
        case Kind::filter:
            state.choice.filter = prompt.text;
            relist(state);
            break;
        case Kind::find:
            if (!prompt.text.empty())
                (void)typedConditions(prompt.text, state.choice.mode, state.now());
            break;
        case Kind::rule: {
            callOff(state, state.tried.awaited);
            state.tried.forget();
            CleanupRule rule = typedRule(prompt.text);
            rule.id = "tried";
            rule.isEnabled = true;
            if (state.tree != nullptr)
                state.tried.awaited =
                    ask(state, BrowserJobs::Rules{state.tree, state.removals,
                                                  std::vector<CleanupRule>{std::move(rule)}});
            break;
        }
        case Kind::goTo:
        case Kind::word:
            break;
        }
    } catch (const TidyUsageError& error) {
        prompt.note = error.what();
        prompt.noteIsError = true;
    }
}

void acceptRule(BrowserState& state, const BrowserPrompt& prompt) {
    CleanupRule rule = typedRule(prompt.text);
    rule.id = prompt.rule ? prompt.rule->id : CleanupRule::makeDraft().id;
    if (prompt.rule)
        rule.isEnabled = prompt.rule->isEnabled;
    else
        state.cursor().row = state.ruleList.size();
    callOff(state, state.tried.awaited);
    state.tried.forget();
    changeRules(state, {.rule = std::move(rule)});
}

void acceptFind(BrowserState& state, const BrowserPrompt& prompt) {
    if (prompt.text.empty() || state.tree == nullptr)
        return;
    findBy(state, typedConditions(prompt.text, state.choice.mode, state.now()), prompt.text);
}

void acceptFolder(BrowserState& state, const BrowserPrompt& prompt) {
    if (prompt.text.empty())
        return;
    std::string path = expandTilde(prompt.text);
    if (!path.starts_with('/'))
        path = joinedPath(folderPath(state), path);
    state.view = BrowserView::list;
    // What the tree holds is gone to; anything else is scanned.
    const FileNode* node = state.tree != nullptr ? state.tree->root().node(path) : nullptr;
    if (node != nullptr && node->isDirectory() && !state.removals->isGoneWithItsFolders(*node))
        visit(state, node, nullptr);
    else
        scan(state, path);
}

void accept(BrowserState& state) {
    BrowserPrompt prompt = *state.prompt;
    try {
        switch (prompt.kind) {
        case Kind::filter:
            break;
        case Kind::find:
            acceptFind(state, prompt);
            break;
        case Kind::goTo:
            acceptFolder(state, prompt);
            break;
        case Kind::rule:
            acceptRule(state, prompt);
            break;
        case Kind::word:
            if (prompt.text != prompt.word) {
                say(state, "Nothing was done.");
                break;
            }
            ask(state, *std::move(prompt.job));
            break;
        }
        state.prompt.reset();
    } catch (const TidyUsageError& error) {
        state.prompt->note = error.what();
        state.prompt->noteIsError = true;
    }
}

void dismiss(BrowserState& state) {
    if (state.prompt->kind == Kind::filter) {
        state.choice.filter.clear();
        relist(state);
    } else if (state.prompt->kind == Kind::rule) {
        callOff(state, state.tried.awaited);
        state.tried.forget();
    }
    state.prompt.reset();
}

} // namespace

void openPrompt(BrowserState& state, BrowserPrompt prompt) {
    prompt.place = prompt.text.size();
    state.prompt = std::move(prompt);
}

void openRule(BrowserState& state, std::optional<std::size_t> rule) {
    if (!state.rules.value)
        return;
    openPrompt(state, {.kind = Kind::rule,
                       .title = rule ? "Rule" : "New rule",
                       .text = rule ? ruleText(state.rules.value->rules[*rule]) : std::string(),
                       .rule = rule ? std::optional(state.rules.value->rules[*rule]) : std::nullopt});
    if (rule)
        textChanged(state);
}

void typeText(BrowserState& state, std::string_view text) {
    constexpr std::size_t longest = 4096;
    BrowserPrompt& prompt = *state.prompt;
    std::string line(text.substr(0, text.find('\n')));
    std::erase_if(line, [](char each) { return static_cast<unsigned char>(each) < 0x20 || each == 0x7F; });
    if (prompt.text.size() + line.size() > longest)
        return;
    prompt.text.insert(prompt.place, line);
    prompt.place += line.size();
    textChanged(state);
}

void typeInto(BrowserState& state, const KeyPress& press) {
    BrowserPrompt& prompt = *state.prompt;
    const auto erase = [&](std::size_t begin, std::size_t end) {
        prompt.text.erase(begin, end - begin);
        prompt.place = begin;
        textChanged(state);
    };
    switch (press.key) {
    case Key::enter:
        accept(state);
        return;
    case Key::escape:
        dismiss(state);
        return;
    case Key::backspace:
        if (prompt.text.empty())
            dismiss(state);
        else
            erase(placeBefore(prompt.text, prompt.place), prompt.place);
        return;
    case Key::remove:
        erase(prompt.place, placeBehind(prompt.text, prompt.place));
        return;
    case Key::left:
        prompt.place = placeBefore(prompt.text, prompt.place);
        return;
    case Key::right:
        prompt.place = placeBehind(prompt.text, prompt.place);
        return;
    case Key::home:
        prompt.place = 0;
        return;
    case Key::end:
        prompt.place = prompt.text.size();
        return;
    case Key::up:
    case Key::down:
        if (prompt.kind == Kind::filter && rowCount(state) > 0) {
            const std::size_t row = state.cursor().row;
            moveTo(state, press.key == Key::up ? row - std::min<std::size_t>(row, 1) : row + 1);
        }
        return;
    case Key::character:
        if (press.control) {
            if (press.text == "u")
                erase(0, prompt.place);
            else if (press.text == "w") {
                std::size_t begin = prompt.place;
                while (begin > 0 && prompt.text[begin - 1] == ' ')
                    --begin;
                while (begin > 0 && prompt.text[begin - 1] != ' ' && prompt.text[begin - 1] != '/')
                    --begin;
                erase(begin, prompt.place);
            } else if (press.text == "a")
                prompt.place = 0;
            else if (press.text == "e")
                prompt.place = prompt.text.size();
            else if (press.text == "c")
                dismiss(state);
        } else if (!press.alt) {
            typeText(state, press.text);
        }
        return;
    default:
        return;
    }
}

void answer(BrowserState& state, const KeyPress& press) {
    const bool isYes = press.key == Key::enter || (press.key == Key::character && !press.control &&
                                                   !press.alt && (press.text == "y" || press.text == "Y"));
    const bool isNo =
        press.key == Key::escape || press.key == Key::backspace ||
        (press.key == Key::character && (press.text == "n" || press.text == "N" || press.text == "q" ||
                                         (press.control && press.text == "c")));
    if (!isYes && !isNo)
        return;
    BrowserQuestion question = *std::move(state.question);
    state.question.reset();
    if (auto* change = std::get_if<BrowserJobs::ChangeRules>(&question.job); isYes && change != nullptr)
        changeRules(state, std::move(*change));
    else if (isYes && question.leaves)
        tarnwell::quit(state);
    else if (isYes)
        ask(state, std::move(question.job));
    else
        say(state, "Nothing was done.");
}

} // namespace tarnwell::BrowserParts
