#pragma once

// What views are made of.

#include "TarnwellTidyKit/Browser/BrowserState.hpp"
#include "TarnwellTidyKit/Screen/Grid.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tarnwell {

/// A part of the screen, and what is shown in it.
struct Pane {
    Grid& grid;
    GridArea area;
    /// The line of column heads above it; no height where there is no room.
    GridArea heads;
    const BrowserState& state;
    bool isUnicode = true;
};

/// Paints a row from left to right.
class RowPainter {
public:
    RowPainter(Grid& grid, int column, int row, int width, bool isSelected = false, bool isMarked = false);

    /// Columns that are left.
    int room() const { return end_ - column_; }
    /// Where they are.
    GridArea line() const { return {column_, row_, room(), 1}; }
    void gap(int columns = 2);
    void text(int width, std::string_view text, Role role = Role::text, Side side = Side::left,
              Cut cut = Cut::end, bool isBold = false);
    void figure(int width, std::string_view text, Role role = Role::text) {
        this->text(width, text, role, Side::right);
    }
    void bar(int width, double share, Role role, bool isFine);
    /// What is left of the row.
    void rest(std::string_view text, Role role = Role::text, Cut cut = Cut::end, bool isBold = false) {
        this->text(room(), text, role, Side::left, cut, isBold);
    }

private:
    Grid& grid_;
    int column_;
    int row_;
    int end_;
    Style style_;
};

/// Draws the rows of a list that are in sight.
void drawRows(const Pane& pane, const std::function<void(std::size_t row, RowPainter& painter)>& draw);
/// A text in the middle of a pane where there are no rows.
void drawNote(const Pane& pane, std::string_view text, Role role = Role::dim);
/// What is said instead of rows that are not there yet; whether there was anything to say.
template <class Value>
bool drawWaiting(const Pane& pane, const Loaded<Value>& loaded, std::string_view waiting) {
    if (loaded.value)
        return false;
    if (!loaded.failure.empty())
        drawNote(pane, loaded.failure, Role::warning);
    else if (loaded.isLoading())
        drawNote(pane, waiting);
    else
        drawNote(pane, pane.state.isScanning() ? "This comes when the scan is done."
                                               : "Nothing is known here yet.");
    return true;
}

/// "12.4 GB" in nine columns: figures of a column end where their units do.
inline constexpr int sizeWidth = 9;
std::string shortSize(std::int64_t bytes);
/// "+1.2 GB", "-3 MB", "0".
std::string signedSize(std::int64_t bytes);
/// "34.2 %".
std::string shareText(double share);
std::string_view modeName(SizeMode mode);
double shareOf(std::int64_t part, std::int64_t whole);
/// What a person reads of a node: its path below the folder that is shown, in full for what lies elsewhere.
std::string pathBelow(const BrowserState& state, const FileNode& node);

/// The mark before a name, and what it means; blank for a plain file.
struct EntryMark {
    std::string_view sign;
    std::string_view meaning;
    Role role = Role::text;
};
EntryMark markOf(const BrowserEntry& entry);
Role roleOf(FileCategory category);

/// The last line of the help that can be the first one seen.
std::size_t lastHelpTop(bool isReadOnly, int height);

// --- The views --------------------------------------------------------------------------------------------

void drawList(const Pane& pane);
void drawMap(const Pane& pane);
void drawLargest(const Pane& pane);
void drawFound(const Pane& pane);
void drawCategories(const Pane& pane);
void drawAges(const Pane& pane);
void drawChanges(const Pane& pane);
void drawFindings(const Pane& pane);
void drawRules(const Pane& pane);
void drawDuplicates(const Pane& pane);
void drawVolumes(const Pane& pane);
void drawHistory(const Pane& pane);
void drawTrash(const Pane& pane);
void drawOutcomes(const Pane& pane);
void drawHelp(const Pane& pane);
void drawDetails(const Pane& pane);
/// Where the bytes of the browsed volume are.
void drawLedger(const Pane& pane);
/// Whether there is a line to draw: two scans of different times.
bool hasHistoryChart(const BrowserState& state);
void drawHistoryChart(const Pane& pane);

} // namespace tarnwell
