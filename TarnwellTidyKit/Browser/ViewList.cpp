// The list of a folder.

#include "TarnwellTidyKit/Browser/SoughtLetters.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <array>

namespace tarnwell {

namespace {

/// Which columns there is room for.
struct Columns {
    int bar = 0;
    bool hasShare = false;
    bool hasItems = false;
    bool hasModified = false;
    bool hasChange = false;
    int others = 0;

    static constexpr int gap = 2;
    static constexpr int itemsWidth = 10;
    static constexpr int dateWidth = 10;
    static constexpr int shareWidth = 6;

    Columns(const BrowserState& state, int width) {
        int room = width - 2 - sizeWidth - gap - 14; // a short name at least
        const auto take = [&](int columns) {
            if (room < columns + gap)
                return false;
            room -= columns + gap;
            return true;
        };
        if (state.has(BrowserColumn::change))
            hasChange = take(sizeWidth + 1);
        const bool hasAll = hasRoomForAll(width);
        if (hasAll || state.has(BrowserColumn::modified))
            hasModified = take(dateWidth);
        if (hasAll || state.has(BrowserColumn::items))
            hasItems = take(itemsWidth);
        if (hasAll || state.has(BrowserColumn::sizes))
            others = take(sizeWidth) ? (take(sizeWidth) ? 2 : 1) : 0;
        hasShare = take(shareWidth);
        const int wanted = width >= 200 ? 40 : width >= 120 ? 20 : width >= 70 ? 12 : 8;
        for (int columns = wanted; columns >= 6 && bar == 0; columns -= 2)
            if (take(columns))
                bar = columns;
    }
};

constexpr std::array<SizeMode, 3> modes = {SizeMode::apparent, SizeMode::allocated, SizeMode::reclaimable};

void drawHeads(const Pane& pane, const Columns& columns) {
    if (pane.heads.height == 0)
        return;
    const BrowserState& state = pane.state;
    const SortChoice& sort = state.choice.sort;
    RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
    const auto head = [&](int width, std::string_view text, SortKey key, Side side, bool isAlso = false) {
        const bool isSorted = sort.key == key || isAlso;
        const std::string_view arrow = !isSorted ? ""
                                       : sort.isReversed != (key == SortKey::name)
                                           ? (pane.isUnicode ? "↑" : "^")
                                           : (pane.isUnicode ? "↓" : "v");
        painter.text(width, std::string(text) + std::string(arrow), isSorted ? Role::heading : Role::dim,
                     side);
    };
    painter.gap(2);
    const auto ownKey =
        static_cast<SortKey>(static_cast<int>(SortKey::apparent) + static_cast<int>(state.choice.mode));
    head(sizeWidth, modeName(state.choice.mode), SortKey::size, Side::right, sort.key == ownKey);
    painter.gap();
    if (columns.bar > 0) {
        painter.gap(columns.bar);
        painter.gap();
    }
    if (columns.hasShare) {
        painter.text(Columns::shareWidth, "Share", Role::dim, Side::right);
        painter.gap();
    }
    int shown = 0;
    for (const SizeMode mode : modes)
        if (mode != state.choice.mode && shown < columns.others) {
            ++shown;
            head(sizeWidth, modeName(mode),
                 static_cast<SortKey>(static_cast<int>(SortKey::apparent) + static_cast<int>(mode)),
                 Side::right);
            painter.gap();
        }
    if (columns.hasItems) {
        head(Columns::itemsWidth, "Items", SortKey::items, Side::right);
        painter.gap();
    }
    if (columns.hasModified) {
        head(Columns::dateWidth, "Modified", SortKey::modified, Side::left);
        painter.gap();
    }
    if (columns.hasChange) {
        head(sizeWidth + 1, "Change", SortKey::change, Side::right);
        painter.gap();
    }
    painter.gap(1);
    head(painter.room(), "Name", SortKey::name, Side::left);
}

} // namespace

void drawList(const Pane& pane) {
    const BrowserState& state = pane.state;
    const Columns columns(state, pane.area.width);
    drawHeads(pane, columns);
    if (!state.order || !state.entries) {
        drawNote(pane, state.isScanning() ? "Reading the folder …"
                                          : "Choose a folder: V shows the volumes, g takes a path.");
        return;
    }
    if (state.order->rows.empty()) {
        drawNote(pane, !state.choice.filter.empty() ? "No name here holds that."
                       : state.isScanning()         ? "Reading the folder …"
                       : state.entries->folder().flags.contains(FileNodeFlags::inaccessible)
                           ? "The folder could not be read."
                       : state.entries->folder().fileCount + state.entries->folder().directoryCount > 0
                           ? "Everything here is hidden; e shows it."
                           : "The folder is empty.");
        return;
    }
    const SizeMode mode = state.choice.mode;
    const std::int64_t whole = state.entries->folder().sizeFor(mode);
    const std::string place =
        columns.hasChange && state.choice.earlier ? placeOf(state, state.folder) : std::string();
    SoughtLetters sought(state.choice.filter);
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const BrowserEntry entry = *entryAt(state, row);
        const bool isMarked = entry.node != nullptr && state.marks.covers(*entry.node);
        const bool isQuiet =
            entry.flags.intersects(FileNodeFlags::excluded | FileNodeFlags::hardlinkDuplicate);
        painter.text(2, isMarked ? (pane.isUnicode ? "●" : "*") : "", Role::heading);
        painter.figure(sizeWidth, shortSize(entry.sizeFor(mode)), isQuiet ? Role::dim : Role::text);
        painter.gap();
        if (columns.bar > 0) {
            painter.bar(columns.bar, shareOf(entry.sizeFor(mode), state.order->largest),
                        roleOf(entry.isDirectory ? FileCategory::folder : entry.category), pane.isUnicode);
            painter.gap();
        }
        if (columns.hasShare) {
            painter.figure(Columns::shareWidth, shareText(shareOf(entry.sizeFor(mode), whole)), Role::dim);
            painter.gap();
        }
        int shown = 0;
        for (const SizeMode other : modes)
            if (other != mode && shown < columns.others) {
                ++shown;
                painter.figure(sizeWidth, shortSize(entry.sizeFor(other)), Role::dim);
                painter.gap();
            }
        if (columns.hasItems) {
            painter.figure(Columns::itemsWidth, entry.isDirectory ? groupedNumber(entry.itemCount()) : "",
                           Role::dim);
            painter.gap();
        }
        if (columns.hasModified) {
            const bool isKnown = entry.modificationSeconds != FileNode::missingTime;
            painter.text(Columns::dateWidth,
                         isKnown ? dayText(dateFromReferenceSeconds(entry.modificationSeconds)) : "",
                         Role::dim);
            painter.gap();
        }
        if (columns.hasChange) {
            const auto change = changeOf(entry, place, state.choice);
            painter.figure(sizeWidth + 1,
                           !change        ? ""
                           : *change == 0 ? "="
                                          : signedSize(*change),
                           !change || *change == 0 ? Role::dim
                           : *change > 0           ? Role::warning
                                                   : Role::good);
            painter.gap();
        }
        const EntryMark mark = markOf(entry);
        painter.text(1, mark.sign, mark.role);
        const GridArea line = painter.line();
        painter.rest(entry.name, isQuiet ? Role::dim : mark.role, Cut::middle);
        sought.show(pane.grid, line);
    });
}

} // namespace tarnwell
