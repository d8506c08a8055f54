#include "TarnwellTidyKit/Browser/ViewFrame.hpp"

#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellTidyKit/Browser/BrowserKeys.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>

namespace tarnwell {

namespace {

int widthOf(std::string_view text) {
    return static_cast<int>(displayWidth(text));
}

bool hasTab(const BrowserState& state, BrowserView view) {
    return (view != BrowserView::found || state.view == view || state.found.value ||
            state.found.isLoading()) &&
           (view != BrowserView::outcomes || state.view == view || !state.outcomes.empty());
}

struct Tab {
    BrowserView view;
    int column;
    int width;
};

/// The names that there is room for, with that of the view among them.
std::vector<Tab> tabsIn(const BrowserState& state, const GridArea& area) {
    constexpr int gap = 2;
    std::vector<Tab> tabs;
    int column = 0;
    int end = 0;
    for (std::size_t number = 0; number < browserViewCount; ++number) {
        const auto view = static_cast<BrowserView>(number);
        if (!hasTab(state, view))
            continue;
        const int width = widthOf(titleOf(view));
        tabs.push_back({view, column, width});
        column += width + gap;
        if (view == state.view)
            end = column;
    }
    // Moved to the left by as much as it takes to see the view's own, and the beginning of the next one.
    const int room = area.width - 1;
    const int shift =
        column - gap > room ? std::clamp(end + 8 - room, 0, std::max(column - gap - room, 0)) : 0;
    for (Tab& tab : tabs)
        tab.column += area.column + 1 - shift;
    std::erase_if(tabs, [&](const Tab& tab) { return tab.column < area.column + 1; });
    return tabs;
}

std::string markedText(const BrowserState& state) {
    std::string text = groupedNumber(static_cast<std::int64_t>(state.marks.count())) + " marked";
    if (state.freed.isLoading())
        return text + ", reckoning what goes free …";
    if (!state.freed.value)
        return text;
    const FreedBytes& freed = *state.freed.value;
    text += ": frees " + sizeText(freed.atLeast);
    if (freed.atMost != freed.atLeast) {
        text += " to " + sizeText(freed.atMost);
        for (const FreedBytes::Reason& reason : freed.reasons)
            if (reason.bytes > 0) {
                text += " (" + std::string(tarnwell::text(reason.kind)) + ")";
                break;
            }
    }
    return text;
}

std::string scanText(const BrowserState& state) {
    const ScanProgress& progress = state.progress;
    std::string text =
        "Scanning  " + groupedNumber(progress.fileCount) + " files  " + sizeText(progress.bytesScanned);
    if (progress.elapsed > 0.5)
        text += "  " +
                groupedNumber(
                    static_cast<std::int64_t>(static_cast<double>(progress.fileCount) / progress.elapsed)) +
                " files/s";
    const std::int64_t unreadable =
        state.entries && state.tree == nullptr ? state.entries->unreadableSoFar() : 0;
    if (unreadable > 0)
        text += "  " + groupedNumber(unreadable) + " unreadable";
    if (!progress.currentPath.empty())
        text += "  " + shortPath(state, progress.currentPath);
    return text;
}

} // namespace

void drawTitle(const Pane& pane) {
    if (pane.area.height == 0)
        return;
    const BrowserState& state = pane.state;
    pane.grid.fill(pane.area, {.role = Role::heading});
    std::string right;
    if (state.entries && state.folder != nullptr) {
        const BrowserEntry folder = state.entries->folder();
        right = std::string(modeName(state.choice.mode)) + " " + sizeText(folder.sizeFor(state.choice.mode)) +
                "   " + countedText(folder.itemCount(), "item", "items");
        if (!state.choice.filter.empty() && state.order)
            right = sizeText(state.order->total) + " of " + right;
    } else if (state.rootPath.empty()) {
        right = "tarnwell";
    }
    if (state.isReadOnly)
        right = "read-only   " + right;
    const int width = pane.area.width;
    const int rightWidth = std::min(widthOf(right), width / 2);
    pane.grid.putFitted(width - rightWidth - 1, pane.area.row, rightWidth, right, {.role = Role::dim});
    const std::string path = state.rootPath.empty() ? "Volumes" : shortPath(state, folderPath(state));
    const std::string title = state.choice.filter.empty() ? path : path + "   /" + state.choice.filter;
    pane.grid.putFitted(1, pane.area.row, width - rightWidth - 4, title,
                        {.role = Role::heading, .isBold = true}, Cut::start);
}

void drawTabs(const Pane& pane) {
    if (pane.area.height == 0)
        return;
    for (const Tab& tab : tabsIn(pane.state, pane.area)) {
        const bool isOwn = tab.view == pane.state.view && !pane.state.showsHelp;
        const int room = pane.area.column + pane.area.width - tab.column;
        if (room > 0)
            pane.grid.putFitted(tab.column, pane.area.row, std::min(room, tab.width), titleOf(tab.view),
                                {.role = isOwn ? Role::link : Role::dim, .isBold = isOwn});
    }
}

std::optional<BrowserView> tabAt(const BrowserState& state, const GridArea& area, int column) {
    for (const Tab& tab : tabsIn(state, area))
        if (column >= tab.column && column < tab.column + tab.width)
            return tab.view;
    return std::nullopt;
}

void drawStatus(const Pane& pane) {
    if (pane.area.height == 0)
        return;
    const BrowserState& state = pane.state;
    std::string text;
    Role role = Role::status;
    if (!state.message.empty()) {
        text = state.message;
        role = state.messageIsFailure ? Role::danger : Role::text;
    } else if (state.isScanning()) {
        text = scanText(state);
        if (!state.marks.isEmpty())
            text = groupedNumber(static_cast<std::int64_t>(state.marks.count())) + " marked  " + text;
    } else if (!state.running.empty()) {
        const RunningJob& job = state.running.front();
        text = job.title + (pane.isUnicode ? " …  " : " ...  ") + job.text;
        if (state.running.size() > 1)
            text += "  (" + std::to_string(state.running.size() - 1) + " more)";
    } else if (!state.marks.isEmpty()) {
        text = markedText(state);
        role = Role::good;
    } else if (state.tree) {
        const ScanStats& stats = state.tree->scan().stats;
        const std::int64_t unread = stats.inaccessibleCount + stats.inaccessibleEntryCount;
        if (state.orderAwaited != 0)
            text = "Sorting …";
        else if (unread > 0) {
            text = countedText(unread, "item", "items") + " could not be read";
            role = Role::warning;
        }
        role = state.orderAwaited != 0 ? Role::status : role;
    }
    const std::size_t count = rowCount(state);
    std::string place;
    if (count > static_cast<std::size_t>(std::max(state.rowsSeen, std::size_t{1})))
        place = groupedNumber(static_cast<std::int64_t>(state.cursor().row + 1)) + "/" +
                groupedNumber(static_cast<std::int64_t>(count));
    const int placeWidth = widthOf(place);
    pane.grid.putFitted(1, pane.area.row, pane.area.width - placeWidth - 3, text, {.role = role},
                        Cut::middle);
    pane.grid.put(pane.area.width - placeWidth - 1, pane.area.row, place, {.role = Role::dim});
}

void drawKeys(const Pane& pane) {
    if (pane.area.height == 0)
        return;
    std::vector<const BrowserKey*> keys = offeredKeys(pane.state);
    const auto lengthOf = [](const BrowserKey* key) {
        return widthOf(keyText(*key)) + 1 + widthOf(key->label) + 2;
    };
    // Help and the end are always there; of the others as many as there is room for.
    constexpr int always = 95;
    int room = pane.area.width - 1;
    for (const BrowserKey* key : keys)
        room -= key->rank >= always ? lengthOf(key) : 0;
    std::erase_if(keys, [&](const BrowserKey* key) {
        if (key->rank >= always)
            return false;
        room -= lengthOf(key);
        return room < 0;
    });
    int column = pane.area.column + 1;
    for (const BrowserKey* key : keys) {
        column += pane.grid.put(column, pane.area.row, keyText(*key), {.role = Role::key}) + 1;
        column += pane.grid.put(column, pane.area.row, key->label, {.role = Role::keyText}) + 2;
    }
}

namespace {

/// Lines of what is about to happen, over the end of the body.
void drawBox(const Pane& body, const std::vector<std::string>& lines, Role role) {
    const int count = std::min(static_cast<int>(lines.size()), body.area.height);
    const int top = body.area.row + body.area.height - count;
    for (int line = 0; line < count; ++line) {
        body.grid.fill({0, top + line, body.grid.size().width, 1}, {.role = role});
        body.grid.putFitted(3, top + line, body.grid.size().width - 4, lines[static_cast<std::size_t>(line)],
                            {.role = role}, Cut::middle);
    }
    if (count > 0 && top > body.area.row)
        body.grid.repeat(0, top - 1, body.grid.size().width, body.isUnicode ? "─" : "-",
                         {.role = Role::rule});
}

} // namespace

std::optional<GridPoint> drawPrompt(const Pane& line, const Pane& note, const Pane& body) {
    const BrowserPrompt& prompt = *line.state.prompt;
    const bool isWord = prompt.kind == BrowserPrompt::Kind::word;
    if (!prompt.lines.empty())
        drawBox(body, prompt.lines, Role::text);
    if (note.area.height > 0) {
        const std::string_view said =
            isWord                 ? std::string_view(prompt.title)
            : !prompt.note.empty() ? std::string_view(prompt.note)
            : prompt.kind == BrowserPrompt::Kind::find
                ? "Words, *.pdf, >100MB, <1GB, --older 1y, --category video, --kind folder …"
            : prompt.kind == BrowserPrompt::Kind::rule
                ? "A name, then --location FOLDER --extension EXT --larger SIZE --older AGE …"
            : prompt.kind == BrowserPrompt::Kind::goTo ? "A folder: ~/Downloads, /, or one below this"
                                                       : std::string_view();
        if (!said.empty()) {
            note.grid.fill(note.area, {});
            note.grid.putFitted(1, note.area.row, note.area.width - 2, said,
                                {.role = isWord || prompt.noteIsError ? Role::danger : Role::dim});
        }
    }
    if (line.area.height == 0)
        return std::nullopt;
    const std::string head = isWord ? ">" : prompt.title;
    const int begin = line.area.column + 1 + widthOf(head) + 1;
    line.grid.put(line.area.column + 1, line.area.row, head, {.role = Role::key});
    const int room = std::max(line.area.column + line.area.width - begin - 1, 1);
    line.grid.fill({begin, line.area.row, room, 1}, {.role = Role::input});
    // The part around the cursor.
    const std::string_view before = std::string_view(prompt.text).substr(0, prompt.place);
    const std::string shown = fitted(before, static_cast<std::size_t>(std::max(room - 1, 0)), Cut::start);
    const int column = begin + line.grid.put(begin, line.area.row, shown, {.role = Role::input});
    line.grid.putFitted(column, line.area.row, begin + room - column,
                        std::string_view(prompt.text).substr(prompt.place), {.role = Role::input});
    return GridPoint{column, line.area.row};
}

void drawQuestion(const Pane& line, const Pane& body) {
    const BrowserQuestion& question = *line.state.question;
    drawBox(body, question.lines, Role::text);
    if (line.area.height == 0)
        return;
    int column = line.area.column + 1;
    const int room = line.area.width - 18;
    column += std::min(room, widthOf(question.title));
    line.grid.putFitted(line.area.column + 1, line.area.row, room, question.title,
                        {.role = Role::warning, .isBold = true});
    column += 2;
    column += line.grid.put(column, line.area.row, "y", {.role = Role::key}) + 1;
    column += line.grid.put(column, line.area.row, "yes", {.role = Role::keyText}) + 2;
    column += line.grid.put(column, line.area.row, "n", {.role = Role::key}) + 1;
    line.grid.put(column, line.area.row, "no", {.role = Role::keyText});
}

} // namespace tarnwell
