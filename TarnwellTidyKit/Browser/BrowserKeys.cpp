#include "TarnwellTidyKit/Browser/BrowserKeys.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tarnwell {

namespace {

using enum BrowserCommand;

constexpr BrowserKey moving[] = {
    {up, "<Up>|k", "↑ k", "", "One row up"},
    {down, "<Down>|j", "↓ j", "", "One row down"},
    {left, "<Left>|h", "", "", ""},
    {right, "<Right>|l", "", "", ""},
    {apply, "<Enter>", "⏎", "do it", "In findings: do what the finding offers, after a question", 11},
    {restore, "<Enter>", "⏎", "put back", "In the Trash: put the item back where it was", 11},
    {enter, "<Enter>|<Right>|l", "⏎ → l", "open",
     "Go into the folder, to the item, or show what the row stands for", 10},
    {leave, "<Backspace>|<Left>|h|<lt>", "⌫ ← h", "", "Go to the folder above"},
    {pageUp, "<PageUp>|<C-b>", "PgUp", "", "One page up"},
    {pageDown, "<PageDown>|<C-f>", "PgDn", "", "One page down"},
    {first, "<Home>", "Home", "", "To the first row"},
    {last, "<End>|G", "End G", "", "To the last row"},
    {nextView, "<Tab>", "Tab", "views", "The next view of this folder", 26},
    {previousView, "<S-Tab>", "⇧Tab", "", "The view before"},
    {volumesView, "V", "", "volumes", "The volumes of this computer"},
    {goTo, "g", "", "go to", "Type a folder and scan it", 60},
};
constexpr BrowserKey looking[] = {
    {sortBySize, "s", "", "size", "Sort by size; again: the other way round", 47},
    {sortByName, "n", "", "name", "Sort by name", 48},
    {sortByItems, "C", "", "", "Sort by how many items a folder holds"},
    {sortByModified, "M", "", "", "Sort by the last change"},
    {sortByNext, "S", "", "", "Sort by what comes next: each of the sizes, the change since a snapshot"},
    {reverse, "I", "", "", "Turn the order round"},
    {foldersFirst, "t", "", "", "Folders first, or among the files"},
    {dropRule, "x", "", "drop", "In rules: drop the rule", 34},
    {editRule, "e", "", "edit", "In rules: edit the rule and see at once what it matches", 31},
    {newRule, "n", "", "new", "In rules: make a new one", 32},
    {toggleRule, "<Space>", "Space", "on/off", "In rules: switch the rule on or off", 33},
    {hidden, "e|.", "e .", "", "Show hidden items, or leave them out"},
    {sizeMode, "a", "", "mode", "Next size: apparent, allocated, reclaimable", 49},
    {itemsColumn, "c", "", "", "Column with the number of items"},
    {modifiedColumn, "m", "", "", "Column with the date of the last change"},
    {sizesColumn, "z", "", "", "Columns with the two other sizes"},
    {changeColumn, "y", "", "", "Column with the change since a snapshot"},
    {details, "i", "", "details", "Details of the item", 55},
    {filter, "/", "", "filter", "Show only names that hold what you type", 44},
    {find, "f", "", "find",
     "Search the folder: words, >100MB, <1GB, and the options of find such as --older 1y", 45},
    {older, "[", "", "older", "In changes: compare with the snapshot before", 36},
    {newer, "]", "", "newer", "In changes: compare with the snapshot after", 37},
    {rescan, "r|<F5>", "r", "rescan", "Read this folder again, in place", 70},
    {snapshot, "w", "", "snapshot", "Take a snapshot, to compare with later", 71},
};
constexpr BrowserKey marking[] = {
    {mark, "<Space>", "Space", "mark", "Mark the item, or take the mark off", 20},
    {range, "v", "", "", "Begin a range of rows; Space or v marks all of it"},
    {markAll, "A", "", "", "Mark all rows that are shown: with a filter, those it leaves"},
    {unmark, "U", "", "unmark", "Take all marks off", 25},
};
constexpr BrowserKey acting[] = {
    {trash, "d|<Delete>", "d", "trash", "Move what is marked, or the item, to the Trash", 21},
    {undo, "u", "", "undo", "Put back what was moved to the Trash last, also after a restart", 23},
    {removeForGood, "D", "", "delete", "Delete for good, but only what has no Trash. Asks for a word", 0},
    {evict, "E", "", "", "Free the local copies of cloud files"},
    {share, "B", "", "share", "In duplicates: let the copies share their blocks; no file goes away", 22},
    {emptyTrash, "X", "", "empty", "In the Trash: delete all of it for good. Asks for a word", 22},
    {open, "o", "", "", "Open the item with its program"},
    {reveal, "R", "", "", "Show the item in the file browser"},
    {copyPath, "p", "", "", "Copy the path, through the terminal"},
    {shell, "b|!", "b", "", "A shell in this folder"},
};
constexpr BrowserKey program[] = {
    {cancel, "<Esc>", "Esc", "stop", "Leave what is open, drop the filter, call off a search", 0},
    {help, "?|<F1>", "?", "help", "This page", 95},
    {quit, "q|<C-c>", "q", "quit", "Leave; the folder, order, columns and view are remembered", 99},
};

constexpr std::array<BrowserKeyGroup, 5> groups = {{{"Moving", moving},
                                                    {"Looking", looking},
                                                    {"Marking", marking},
                                                    {"Acting", acting},
                                                    {"The program", program}}};

constexpr std::pair<std::string_view, Key> keyNames[] = {
    {"Up", Key::up},         {"Down", Key::down},     {"Left", Key::left},
    {"Right", Key::right},   {"Enter", Key::enter},   {"Backspace", Key::backspace},
    {"Esc", Key::escape},    {"PageUp", Key::pageUp}, {"PageDown", Key::pageDown},
    {"Home", Key::home},     {"End", Key::end},       {"Tab", Key::tab},
    {"Delete", Key::remove}, {"F1", Key::f1},         {"F5", Key::f5}};

bool isKey(const KeyPress& press, std::string_view spec) {
    if (spec.size() < 3 || !spec.starts_with('<') || !spec.ends_with('>'))
        return press.key == Key::character && !press.control && !press.alt && press.text == spec;
    std::string_view name = spec.substr(1, spec.size() - 2);
    const bool isControl = name.starts_with("C-");
    const bool isShifted = name.starts_with("S-");
    if (isControl || isShifted)
        name.remove_prefix(2);
    if (press.control != isControl || press.alt)
        return false;
    if (name == "Space" || name == "lt")
        return press.key == Key::character && press.text == (name == "lt" ? "<" : " ");
    for (const auto& [known, key] : keyNames)
        if (known == name)
            return press.key == key && (key != Key::tab || press.shift == isShifted);
    return press.key == Key::character && press.text == name;
}

bool isKeyOf(const KeyPress& press, std::string_view keys) {
    while (!keys.empty()) {
        const auto end = keys.find('|', 1);
        if (isKey(press, keys.substr(0, end)))
            return true;
        keys = end == std::string_view::npos ? std::string_view() : keys.substr(end + 1);
    }
    return false;
}

/// Views whose rows are items of the tree.
bool showsItems(BrowserView view) {
    using enum BrowserView;
    return view == list || view == map || view == largest || view == found || view == changes ||
           view == duplicates;
}

bool isAvailableInView(BrowserCommand command, const BrowserState& state) {
    const BrowserView view = state.view;
    const bool isList = view == BrowserView::list;
    const bool hasRows = rowCount(state) > 0;
    switch (command) {
    case left:
    case right:
        return view == BrowserView::map;
    case leave:
        return view != BrowserView::volumes && state.folder != nullptr && state.folder->parent() != nullptr;
    case enter:
        if (view == BrowserView::duplicates && !hasRows)
            return state.tree != nullptr && !state.isScanning() && !state.duplicates.isLoading();
        return view == BrowserView::map ||
               (hasRows && view != BrowserView::findings && view != BrowserView::trash &&
                view != BrowserView::history && view != BrowserView::outcomes);
    case sortBySize:
    case sortByName:
    case sortByItems:
    case sortByModified:
    case sortByNext:
    case reverse:
    case foldersFirst:
    case hidden:
    case filter:
        return isList;
    case markAll:
    case range:
        return mayMark(state) && hasRows &&
               (isList || view == BrowserView::found || view == BrowserView::largest);
    case itemsColumn:
    case modifiedColumn:
    case sizesColumn:
        return isList;
    case changeColumn:
        return isList && state.tree != nullptr;
    case older:
        return view == BrowserView::changes && state.changes.value && *state.changes.value &&
               state.snapshotNumber + 1 < (*state.changes.value)->count;
    case newer:
        return view == BrowserView::changes && state.snapshotNumber > 0;
    case apply:
        return view == BrowserView::findings && hasRows && mayAct(state);
    case restore:
        return view == BrowserView::trash && hasRows && !state.isReadOnly;
    case emptyTrash:
        return view == BrowserView::trash && hasRows && !state.isReadOnly;
    case share:
        return view == BrowserView::duplicates && hasRows && mayAct(state);
    case editRule:
    case toggleRule:
    case dropRule:
        return view == BrowserView::rules && hasRows && !state.isReadOnly;
    case newRule:
        return view == BrowserView::rules && state.rules.value && !state.isReadOnly;
    default:
        return true;
    }
}

} // namespace

std::span<const BrowserKeyGroup> browserKeyGroups() {
    return groups;
}

bool isAvailable(BrowserCommand command, const BrowserState& state) {
    if (!isAvailableInView(command, state))
        return false;
    switch (command) {
    case find:
    case details:
    case sizeMode:
        return state.folder != nullptr;
    case snapshot:
        return mayAct(state);
    case rescan:
        return !state.rootPath.empty() && !state.isScanning();
    case mark:
        return mayMark(state) && showsItems(state.view) && target(state).has_value();
    case unmark:
        return !state.marks.isEmpty();
    case trash:
    case evict:
        return mayAct(state) && (!state.marks.isEmpty() || (showsItems(state.view) && target(state)));
    case removeForGood:
        return mayAct(state) && (!state.marks.isEmpty() || (showsItems(state.view) && target(state)));
    case undo:
        return !state.isReadOnly;
    case open:
        return !state.isReadOnly && target(state).has_value();
    case reveal:
    case copyPath:
        return target(state).has_value();
    case shell:
        return !state.isReadOnly && !state.rootPath.empty();
    default:
        return true;
    }
}

BrowserCommand commandOf(const KeyPress& press, const BrowserState& state) {
    BrowserCommand found = none;
    for (const BrowserKeyGroup& group : groups)
        for (const BrowserKey& key : group.keys)
            if (isKeyOf(press, key.keys)) {
                if (isAvailable(key.command, state))
                    return key.command;
                if (found == none)
                    found = key.command;
            }
    return found;
}

std::vector<const BrowserKey*> offeredKeys(const BrowserState& state) {
    std::vector<const BrowserKey*> keys;
    for (const BrowserKeyGroup& group : groups)
        for (const BrowserKey& key : group.keys)
            if (key.rank > 0 && isAvailable(key.command, state))
                keys.push_back(&key);
    std::ranges::stable_sort(keys, {}, &BrowserKey::rank);
    return keys;
}

std::string keyText(const BrowserKey& key) {
    if (!key.shown.empty()) {
        const std::string_view shown = key.shown;
        return std::string(shown.substr(0, shown.find(' ')));
    }
    return std::string(key.keys.substr(0, key.keys.find('|', 1)));
}

} // namespace tarnwell
