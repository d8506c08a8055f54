#include "TarnwellTidyKit/Screen/Grid.hpp"

#include "TarnwellCore/Platform/CharacterWidth.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace tarnwell {

namespace {

const Cell blank;

/// What makes a terminal draw neighbours as one, in columns that nobody knows.
bool isMerging(char32_t code) {
    return code == 0x200D || (code >= 0xFE00 && code <= 0xFE0F);
}

/// A character and the accents on it, taken off the front of a harmless text.
struct Cluster {
    std::string bytes;
    int columns = 0;
};

Cluster takeCluster(std::string_view& text) {
    Cluster cluster;
    while (!text.empty()) {
        const Utf8Part part = firstUTF8Part(text);
        const int columns = part.code < 0x80 ? 1 : characterWidth(part.code);
        if (!cluster.bytes.empty() && columns > 0)
            break;
        if (cluster.bytes.empty() && columns == 0 && !isMerging(part.code)) {
            // An accent on nothing is shown on a blank.
            cluster = {" ", 1};
        }
        // Joiners between letters of scripts that are written with them are not drawn by terminals either.
        if (!isMerging(part.code) && cluster.bytes.size() + part.length <= Cell::capacity)
            cluster.bytes += text.substr(0, part.length);
        cluster.columns += columns;
        text.remove_prefix(part.length);
    }
    return cluster;
}

constexpr std::array<std::string_view, 7> eighths = {"▏", "▎", "▍", "▌", "▋", "▊", "▉"};

} // namespace

Grid::Grid(GridSize size)
    : size_{std::clamp(size.width, 0, largestSide), std::clamp(size.height, 0, largestSide)},
      cells_(static_cast<std::size_t>(size_.width) * static_cast<std::size_t>(size_.height)) {}

const Cell& Grid::at(int column, int row) const {
    if (!isInside(column, row))
        return blank;
    return cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(size_.width) +
                  static_cast<std::size_t>(column)];
}

void Grid::release(int column, int row, int count) {
    const auto makeBlank = [this, row](int at) {
        const Style style = cell(at, row).style;
        cell(at, row) = Cell();
        cell(at, row).style = style;
    };
    if (isInside(column, row) && cell(column, row).columns_ == 0 && column > 0)
        makeBlank(column - 1);
    const int last = column + count - 1;
    if (isInside(last, row) && cell(last, row).columns_ == 2 && isInside(last + 1, row))
        makeBlank(last + 1);
}

void Grid::set(int column, int row, std::string_view bytes, int columns, Style style) {
    if (row < 0 || row >= size_.height)
        return;
    const bool isWhole = isInside(column, row) && isInside(column + columns - 1, row);
    for (int half = 0; half < columns; ++half) {
        const int at = column + half;
        if (!isInside(at, row))
            continue;
        release(at, row, 1);
        Cell one;
        one.style = style;
        if (isWhole && half == 0) {
            one.bytes_ = {};
            std::memcpy(one.bytes_.data(), bytes.data(), bytes.size());
            one.size_ = static_cast<std::uint8_t>(bytes.size());
            one.columns_ = static_cast<std::uint8_t>(columns);
        }
        cell(at, row) = one;
    }
    if (isWhole && columns == 2) {
        Cell& second = cell(column + 1, row);
        second.bytes_ = {};
        second.size_ = 0;
        second.columns_ = 0;
    }
}

int Grid::put(int column, int row, std::string_view text, Style style) {
    std::string escaped;
    if (!isHarmless(text)) {
        escaped = harmless(text);
        text = escaped;
    }
    int used = 0;
    while (!text.empty()) {
        const Cluster cluster = takeCluster(text);
        if (cluster.columns == 0)
            continue;
        if (column + used < size_.width)
            set(column + used, row, cluster.bytes, cluster.columns, style);
        used += cluster.columns;
    }
    return used;
}

int Grid::putFitted(int column, int row, int width, std::string_view text, Style style, Cut cut) {
    return put(column, row, fitted(text, static_cast<std::size_t>(std::max(width, 0)), cut), style);
}

void Grid::putPadded(int column, int row, int width, std::string_view text, Style style, Side side, Cut cut) {
    put(column, row, padded(text, static_cast<std::size_t>(std::max(width, 0)), side, cut), style);
}

void Grid::fill(GridArea area, Style style) {
    for (int row = std::max(area.row, 0); row < std::min(area.row + area.height, size_.height); ++row)
        for (int column = std::max(area.column, 0); column < std::min(area.column + area.width, size_.width);
             ++column)
            set(column, row, " ", 1, style);
}

void Grid::repeat(int column, int row, int count, std::string_view character, Style style) {
    std::string_view rest = character;
    if (rest.empty() || !isHarmless(rest))
        return;
    const Cluster cluster = takeCluster(rest);
    if (cluster.columns != 1 || !rest.empty())
        return;
    for (int at = std::max(column, 0); at < std::min(column + count, size_.width); ++at)
        set(at, row, cluster.bytes, 1, style);
}

void Grid::bar(int column, int row, int width, double share, Style filled, Style track, bool isFine) {
    if (width <= 0)
        return;
    const int steps = isFine ? 8 : 1;
    const double clamped = share > 0 ? std::min(share, 1.0) : 0;
    int units = static_cast<int>(std::lround(clamped * width * steps));
    if (clamped > 0)
        units = std::max(units, 1);
    const int whole = units / steps;
    fill({column + whole, row, width - whole, 1}, track);
    repeat(column, row, whole, "█", filled.on(track.fill));
    if (const int eighth = units % steps; eighth > 0)
        set(column + whole, row, eighths[static_cast<std::size_t>(eighth - 1)], 1, filled.on(track.fill));
}

void Grid::halves(int column, int row, Role upper, Role lower) {
    if (upper == lower)
        set(column, row, " ", 1, {Role::text, upper, false, false, false});
    else if (upper == Role::ground)
        set(column, row, "▄", 1, {lower, upper, false, false, false});
    else
        set(column, row, "▀", 1, {upper, lower, false, false, false});
}

std::string Grid::text() const {
    std::string text;
    for (int row = 0; row < size_.height; ++row) {
        for (int column = 0; column < size_.width; ++column)
            text += at(column, row).text();
        text.erase(text.find_last_not_of(' ', text.size()) + 1);
        text += '\n';
    }
    return text;
}

} // namespace tarnwell
