#pragma once

// What a cell means. Which colours, weights and lines that becomes is the screen's affair: it knows how many
// colours there are, whether the ground is dark, and whether colours are wanted at all.

#include <cstddef>
#include <cstdint>

namespace tarnwell {

enum class Role : std::uint8_t {
    ground,   ///< The terminal's own background; as the colour of a text, its own foreground.
    text,     ///< What is read.
    dim,      ///< What may be overlooked: units, hints, shares, dates.
    heading,  ///< Titles and the heads of columns.
    link,     ///< Folders and other things that Enter goes into.
    danger,   ///< What deletes for good, what failed.
    warning,  ///< Unreadable items, protected places, what is not sure.
    good,     ///< What went well, space that goes free, what shrank.
    match,    ///< The letters of a name that a filter found.
    bar,      ///< The part of a bar that is filled, where no category has a say.
    barTrack, ///< The rest of the bar.
    rule,     ///< Lines between parts of the screen.
    key,      ///< A key to press.
    keyText,  ///< What the key does.
    input,    ///< A line that is typed into.
    status,   ///< The line that tells how a scan is going.
    heat0,    ///< Ages, from new …
    heat1,
    heat2,
    heat3,
    heat4,  ///< … to old.
    accent, ///< The first of `accentCount` colours that tell categories apart: see `accentRole`.
};

inline constexpr std::size_t accentCount = 20;
inline constexpr std::size_t roleCount = static_cast<std::size_t>(Role::accent) + accentCount;

/// The accent of a number, which may be the raw value of a category; taken modulo `accentCount`.
constexpr Role accentRole(std::size_t number) {
    return static_cast<Role>(static_cast<std::size_t>(Role::accent) + number % accentCount);
}

/// How a cell is painted. Roles say what it is, the rest what has happened to it; all of them combine.
struct Style {
    /// What the letters are.
    Role role = Role::text;
    /// What is behind them: `ground`, or the role whose colour fills the cell (bars, tiles of a treemap).
    /// Letters on a filled cell are drawn in black or white, whichever can be read, where `role` is `text`.
    Role fill = Role::ground;
    /// The cursor's row or tile. Stays visible without colours.
    bool isSelected = false;
    /// Marked for an act. Stays visible without colours.
    bool isMarked = false;
    bool isBold = false;

    friend bool operator==(const Style&, const Style&) = default;

    constexpr Style selected(bool is = true) const { return {role, fill, is, isMarked, isBold}; }
    constexpr Style marked(bool is = true) const { return {role, fill, isSelected, is, isBold}; }
    constexpr Style bold(bool is = true) const { return {role, fill, isSelected, isMarked, is}; }
    constexpr Style on(Role newFill) const { return {role, newFill, isSelected, isMarked, isBold}; }
    constexpr Style as(Role newRole) const { return {newRole, fill, isSelected, isMarked, isBold}; }
};

} // namespace tarnwell
