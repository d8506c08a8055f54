#include "TarnwellTidyKit/Browser/ViewParts.hpp"

#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellTidyKit/Browser/BrowserPaths.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarnwell {

RowPainter::RowPainter(Grid& grid, int column, int row, int width, bool isSelected, bool isMarked)
    : grid_(grid),
      column_(column),
      row_(row),
      end_(column + width),
      style_{.isSelected = isSelected, .isMarked = isMarked} {
    grid.fill({column, row, width, 1}, style_);
}

void RowPainter::gap(int columns) {
    column_ = std::min(column_ + columns, end_);
}

void RowPainter::text(int width, std::string_view text, Role role, Side side, Cut cut, bool isBold) {
    const int taken = std::clamp(width, 0, room());
    if (taken > 0)
        grid_.putPadded(column_, row_, taken, text, style_.as(role).bold(isBold), side, cut);
    column_ += taken;
}

void RowPainter::bar(int width, double share, Role role, bool isFine) {
    const int taken = std::clamp(width, 0, room());
    if (taken > 0)
        grid_.bar(column_, row_, taken, std::clamp(share, 0.0, 1.0), style_.as(role),
                  style_.as(Role::barTrack), isFine);
    column_ += taken;
}

void drawRows(const Pane& pane, const std::function<void(std::size_t, RowPainter&)>& draw) {
    const BrowserState& state = pane.state;
    const std::size_t count = rowCount(state);
    const BrowserCursor& cursor = state.cursor();
    for (int line = 0; line < pane.area.height; ++line) {
        const std::size_t row = cursor.top + static_cast<std::size_t>(line);
        if (row >= count)
            break;
        bool isMarked = false;
        if (!state.marks.isEmpty() || state.rangeStart) {
            const auto item = targetAt(state, row);
            isMarked = item && item->node != nullptr && state.marks.covers(*item->node);
            if (state.rangeStart)
                isMarked = isMarked || (row >= std::min(*state.rangeStart, cursor.row) &&
                                        row <= std::max(*state.rangeStart, cursor.row));
        }
        RowPainter painter(pane.grid, pane.area.column, pane.area.row + line, pane.area.width,
                           row == cursor.row, isMarked);
        draw(row, painter);
    }
}

void drawNote(const Pane& pane, std::string_view text, Role role) {
    const int width = std::max(pane.area.width - 4, 0);
    std::string lines = wrappedText(text, static_cast<std::size_t>(width), 0);
    int row = pane.area.row + std::min(1, pane.area.height - 1);
    std::string_view rest = lines;
    while (!rest.empty() && row < pane.area.row + pane.area.height) {
        const auto end = rest.find('\n');
        pane.grid.putFitted(pane.area.column + 2, row++, width, rest.substr(0, end), {.role = role});
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
}

std::string shortSize(std::int64_t bytes) {
    if (bytes < 0)
        return "-" + ByteFormatter::compact(bytes == INT64_MIN ? INT64_MAX : -bytes);
    return ByteFormatter::compact(bytes);
}

std::string signedSize(std::int64_t bytes) {
    return bytes > 0 ? "+" + shortSize(bytes) : shortSize(bytes);
}

std::string shareText(double share) {
    if (share > 0 && share < 0.001)
        return "<0.1 %";
    char text[16];
    std::snprintf(text, sizeof text, "%.1f %%", share * 100);
    return text;
}

std::string_view modeName(SizeMode mode) {
    switch (mode) {
    case SizeMode::apparent:
        return "Size";
    case SizeMode::allocated:
        return "On disk";
    case SizeMode::reclaimable:
        return "Frees";
    }
    return "Size";
}

double shareOf(std::int64_t part, std::int64_t whole) {
    return whole > 0 ? std::clamp(static_cast<double>(part) / static_cast<double>(whole), 0.0, 1.0) : 0;
}

std::string pathBelow(const BrowserState& state, const FileNode& node) {
    const FileNode* above = node.parent();
    while (above != nullptr && above != state.folder)
        above = above->parent();
    // What was found elsewhere is named in full: people delete by what they read here.
    return above == nullptr ? shortPath(state, node.path())
                            : std::string(relativePath(node.path(), above->path()));
}

EntryMark markOf(const BrowserEntry& entry) {
    const FileNodeFlags flags = entry.flags;
    if (flags.contains(FileNodeFlags::inaccessible))
        return {"!", "could not be read", Role::warning};
    if (flags.contains(FileNodeFlags::excluded))
        return {".", "left out of the scan", Role::dim};
    if (flags.contains(FileNodeFlags::mountPoint))
        return {">", "another file system", Role::link};
    if (flags.contains(FileNodeFlags::dataless))
        return {"~", "contents in the cloud only", Role::dim};
    if (flags.contains(FileNodeFlags::symlink))
        return {"@", "symbolic link", Role::text};
    if (flags.contains(FileNodeFlags::special))
        return {"*", "device, pipe or socket", Role::dim};
    if (flags.contains(FileNodeFlags::hardlinkDuplicate))
        return {"&", "further link to a file that is counted elsewhere", Role::dim};
    if (flags.contains(FileNodeFlags::package))
        return {"#", "package", Role::link};
    if (entry.isDirectory)
        return {"/", "folder", Role::link};
    if (entry.sharesBlocks)
        return {"=", "shares blocks with a clone", Role::text};
    if (entry.node != nullptr && !entry.isPending && entry.node->keepsSharing())
        return {"+", "several links, or shared blocks", Role::text};
    return {" ", "file", Role::text};
}

Role roleOf(FileCategory category) {
    return category == FileCategory::folder ? Role::bar : accentRole(rawValue(category));
}

} // namespace tarnwell
