#pragma once

// What a person can ask for, and by which keys: the one table behind keys, the last line and the help.

#include "TarnwellTidyKit/Browser/BrowserState.hpp"
#include "TarnwellTidyKit/Screen/Event.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tarnwell {

enum class BrowserCommand : std::uint8_t {
    none,
    // Moving
    up,
    down,
    pageUp,
    pageDown,
    first,
    last,
    enter,
    leave,
    left,
    right,
    nextView,
    previousView,
    volumesView,
    goTo,
    // Looking
    sortBySize,
    sortByName,
    sortByItems,
    sortByModified,
    sortByNext,
    reverse,
    foldersFirst,
    hidden,
    sizeMode,
    itemsColumn,
    modifiedColumn,
    sizesColumn,
    changeColumn,
    details,
    filter,
    find,
    older,
    newer,
    rescan,
    snapshot,
    // Marking
    mark,
    range,
    markAll,
    unmark,
    // Acting
    trash,
    undo,
    removeForGood,
    evict,
    share,
    apply,
    restore,
    emptyTrash,
    open,
    reveal,
    copyPath,
    shell,
    editRule,
    newRule,
    toggleRule,
    dropRule,
    // The program
    help,
    cancel,
    quit,
};

struct BrowserKey {
    BrowserCommand command;
    /// In a notation such as "j|<Down>|<C-n>".
    std::string_view keys;
    /// As the help shows them, when that is shorter.
    std::string_view shown;
    /// For the last line.
    std::string_view label;
    /// For the help; empty to leave it out.
    std::string_view help;
    /// How early it stands in the last line; 0: not at all.
    int rank = 0;
};

struct BrowserKeyGroup {
    std::string_view title;
    std::span<const BrowserKey> keys;
};

std::span<const BrowserKeyGroup> browserKeyGroups();

/// Whether a command does something now.
bool isAvailable(BrowserCommand command, const BrowserState& state);
/// The command of a key now: of those that it has, the first that does something, else the first.
BrowserCommand commandOf(const KeyPress& press, const BrowserState& state);
/// What the last line offers now, the most important first.
std::vector<const BrowserKey*> offeredKeys(const BrowserState& state);
/// "⏎", "Tab", "^L", "a".
std::string keyText(const BrowserKey& key);

} // namespace tarnwell
