#pragma once

// A picture of the whole screen, before it is on one: cells in rows, painted by views.
//
// What is painted outside is left out, without an error: views need not ask whether there is room. Texts are
// any bytes: they are shown as `harmless` shows them (HarmlessText.hpp), so nothing in a cell can command a
// terminal, and widths are those of `displayWidth`, except that characters which terminals merge into one
// (emoji with joiners or variation selectors) are shown side by side, each with its own columns: columns stay
// straight on every terminal. A wide character is never cut in half: where its other half is painted over or
// outside, a blank stays in its style.
//
// Not for two threads at a time.

#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellTidyKit/Screen/Cell.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// In columns and rows; both count from 0 at the upper left.
struct GridSize {
    int width = 0;
    int height = 0;
    friend bool operator==(const GridSize&, const GridSize&) = default;
};

struct GridPoint {
    int column = 0;
    int row = 0;
    friend bool operator==(const GridPoint&, const GridPoint&) = default;
};

struct GridArea {
    int column = 0;
    int row = 0;
    int width = 0;
    int height = 0;
    friend bool operator==(const GridArea&, const GridArea&) = default;

    bool contains(GridPoint point) const {
        return point.column >= column && point.column - column < width && point.row >= row &&
               point.row - row < height;
    }
};

class Grid {
public:
    /// Blanks of the role `text`. Negative sizes are none; beyond `largestSide`, less.
    explicit Grid(GridSize size = {});
    static constexpr int largestSide = 2000;

    GridSize size() const { return size_; }
    GridArea area() const { return {0, 0, size_.width, size_.height}; }

    /// The cell there; outside, a blank.
    const Cell& at(int column, int row) const;

    /// Paints the text from `column` to the right, as far as there is room in the grid. Gives the columns it
    /// takes (also of what is outside on the right), so that the next text can follow.
    int put(int column, int row, std::string_view text, Style style = {});

    /// As `put`, in `width` columns at most: what is too long ends, begins, or is broken, with "…".
    int putFitted(int column, int row, int width, std::string_view text, Style style = {},
                  Cut cut = Cut::end);

    /// Exactly `width` columns, the rest blanks of the style. `Side::right` is for figures.
    void putPadded(int column, int row, int width, std::string_view text, Style style = {},
                   Side side = Side::left, Cut cut = Cut::end);

    /// Every cell of the area becomes a blank of the style.
    void fill(GridArea area, Style style);
    /// A line of one character, which is visible and one column wide; of anything else, nothing is drawn.
    void repeat(int column, int row, int count, std::string_view character, Style style);

    /// Changes the style of cells by `change(Style) -> Style`; what is written in them stays. Both halves of
    /// a wide character keep one style, that of the left one.
    template <class Change>
    void restyle(GridArea area, Change&& change);

    /// A bar that is filled to `share` of 0…1 in eighths of a cell where `isFine`, else in whole ones, drawn
    /// as letters of the style `filled` on the fill of `track`. What is not 0 shows at least an eighth, or a
    /// cell.
    void bar(int column, int row, int width, double share, Style filled, Style track, bool isFine = true);

    /// Two pixels a cell: the upper and the lower half have a colour each. `Role::ground` is the terminal's
    /// background.
    void halves(int column, int row, Role upper, Role lower);

    /// The rows as text, without styles or the blanks at their ends, each with a line feed: what tests
    /// compare.
    std::string text() const;

    friend bool operator==(const Grid&, const Grid&) = default;

private:
    bool isInside(int column, int row) const {
        return column >= 0 && row >= 0 && column < size_.width && row < size_.height;
    }
    Cell& cell(int column, int row) {
        return cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(size_.width) +
                      static_cast<std::size_t>(column)];
    }
    /// Makes blanks of the other halves of wide characters that begin or end in these columns of a row.
    void release(int column, int row, int count);
    void set(int column, int row, std::string_view bytes, int columns, Style style);

    GridSize size_;
    std::vector<Cell> cells_; // rows from above, `size_.width` each
};

template <class Change>
void Grid::restyle(GridArea area, Change&& change) {
    for (int row = area.row; row < area.row + area.height; ++row)
        for (int column = area.column; column < area.column + area.width; ++column)
            if (isInside(column, row)) {
                Cell& one = cell(column, row);
                if (one.columns_ != 0)
                    one.style = change(one.style);
                else
                    one.style = cell(column - 1, row).style;
                if (one.columns_ == 2)
                    cell(column + 1, row).style = one.style;
            }
}

} // namespace tarnwell
