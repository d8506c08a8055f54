#include "TarnwellTidyKit/Browser/SoughtLetters.hpp"

#include <cstddef>

namespace tarnwell {

namespace {

/// Without the blanks behind what is written there.
int endOfText(const Grid& grid, GridArea line) {
    int end = line.column + line.width;
    while (end > line.column && grid.at(end - 1, line.row).text() == " ")
        --end;
    return end;
}

} // namespace

SoughtLetters::SoughtLetters(std::string_view filter) {
    if (!filter.empty())
        texts_.push_back({std::string(folder_.fold(filter))});
}

SoughtLetters::SoughtLetters(const std::vector<TextCondition>& names) {
    for (const TextCondition& name : names)
        if (name.kind == TextCondition::Kind::contains && !name.text.empty())
            texts_.push_back(
                {name.regardsCase() ? name.text : std::string(folder_.fold(name.text)), name.regardsCase()});
}

void SoughtLetters::show(Grid& grid, GridArea line) {
    const int end = texts_.empty() ? line.column : endOfText(grid, line);
    for (const Text& text : texts_) {
        // Cell by cell: what a letter is folded to may be longer than itself.
        std::string shown;
        std::vector<int> columns; // of each byte of it
        for (int column = line.column; column < end; ++column) {
            const std::string_view cell = grid.at(column, line.row).text();
            shown += text.regardsCase ? cell : folder_.fold(cell);
            columns.resize(shown.size(), column);
        }
        for (std::size_t at = 0; (at = shown.find(text.letters, at)) != std::string::npos;
             at += text.letters.size()) {
            const int first = columns[at];
            const int last = columns[at + text.letters.size() - 1];
            grid.restyle({first, line.row, last - first + 1, 1},
                         [](const Style& style) { return style.as(Role::match); });
        }
    }
}

void SoughtLetters::showInPath(Grid& grid, GridArea line) {
    const int end = endOfText(grid, line);
    int begin = end - 1; // what stands there may be a folder's own sign
    while (begin > line.column && grid.at(begin - 1, line.row).text() != "/")
        --begin;
    if (begin < end)
        show(grid, {begin, line.row, end - begin, 1});
}

} // namespace tarnwell
