// What is below the folder by category, and by age.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <array>

namespace tarnwell {

namespace {

struct Figure {
    std::string_view name;
    const FigureSum* sum;
    Role role;
};

void drawFigures(const Pane& pane, std::string_view head, const std::vector<Figure>& figures) {
    const SizeMode mode = pane.state.choice.mode;
    constexpr int nameWidth = 18;
    constexpr int countWidth = 11;
    constexpr int shareWidth = 6;
    const int used = 2 + nameWidth + 2 + sizeWidth + 2 + shareWidth + 2 + countWidth + 2;
    const int barWidth = std::clamp(pane.area.width - used - 1, 0, 60);
    const bool hasCount = pane.area.width >= 44;
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(2);
        painter.text(nameWidth, head, Role::dim);
        painter.gap();
        painter.figure(sizeWidth, modeName(mode), Role::heading);
        painter.gap();
        painter.figure(shareWidth, "Share", Role::dim);
        if (hasCount) {
            painter.gap();
            painter.figure(countWidth, "Files", Role::dim);
        }
    }
    std::int64_t whole = 0;
    std::int64_t largest = 0;
    for (const Figure& figure : figures) {
        whole += figure.sum->sizeFor(mode);
        largest = std::max(largest, figure.sum->sizeFor(mode));
    }
    if (figures.empty()) {
        drawNote(pane, "Nothing here takes up space.");
        return;
    }
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const Figure& figure = figures[row];
        const std::int64_t size = figure.sum->sizeFor(mode);
        painter.gap(2);
        painter.text(nameWidth, figure.name, figure.role);
        painter.gap();
        painter.figure(sizeWidth, shortSize(size));
        painter.gap();
        painter.figure(shareWidth, shareText(shareOf(size, whole)), Role::dim);
        if (hasCount) {
            painter.gap();
            painter.figure(countWidth, groupedNumber(figure.sum->fileCount), Role::dim);
        }
        painter.gap();
        if (barWidth >= 6)
            painter.bar(barWidth, shareOf(size, largest), figure.role, pane.isUnicode);
    });
}

} // namespace

void drawCategories(const Pane& pane) {
    if (drawWaiting(pane, pane.state.figures, "Adding up …"))
        return;
    std::vector<Figure> figures;
    for (const FileCategory category : categoryRows(pane.state))
        figures.push_back({displayName(category), &pane.state.figures.value->categories[rawValue(category)],
                           roleOf(category)});
    drawFigures(pane, "Category", figures);
}

void drawAges(const Pane& pane) {
    if (drawWaiting(pane, pane.state.figures, "Adding up …"))
        return;
    constexpr std::array<std::string_view, reportAgeCount> names = {"Within 30 days", "Within a year",
                                                                    "Over a year ago", "Not known"};
    constexpr std::array<Role, reportAgeCount> roles = {Role::heat0, Role::heat2, Role::heat4, Role::dim};
    std::vector<Figure> figures;
    for (std::size_t age = 0; age < reportAgeCount; ++age)
        figures.push_back({names[age], &pane.state.figures.value->ages[age], roles[age]});
    drawFigures(pane, "Modified", figures);
}

} // namespace tarnwell
