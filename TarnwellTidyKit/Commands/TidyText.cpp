#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellCore/Text/TextOutput.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::size_t columnGap = 2;

std::string_view colorCode(TidyRole role) {
    switch (role) {
    case TidyRole::plain:
        return {};
    case TidyRole::heading:
        return "\033[1m";
    case TidyRole::quiet:
        return "\033[2m";
    case TidyRole::strong:
        return "\033[36m";
    case TidyRole::good:
        return "\033[32m";
    case TidyRole::warning:
        return "\033[33m";
    case TidyRole::danger:
        return "\033[31m";
    }
    return {};
}

} // namespace

std::string TidyStyle::painted(std::string_view text, TidyRole role) const {
    const std::string_view code = colorCode(role);
    if (!hasColors || code.empty() || text.empty())
        return std::string(text);
    return std::string(code) + std::string(text) + "\033[0m";
}

std::string TidyStyle::bar(double fraction, std::size_t width) const {
    static constexpr std::array<std::string_view, 8> eighths = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    if (!hasBars || width == 0)
        return {};
    const double clean = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0;
    const auto parts = static_cast<std::size_t>(std::lround(clean * static_cast<double>(width) * 8));
    std::string text;
    for (std::size_t full = 0; full < parts / 8; ++full)
        text += "█";
    const std::string_view last = eighths[parts % 8];
    text += last;
    const std::size_t used = parts / 8 + (last.empty() ? 0 : 1);
    const std::string rest(width - used, ' ');
    return painted(text, TidyRole::strong) + rest;
}

TidyTable::TidyTable(std::vector<TidyColumn> columns, std::size_t indent)
    : columns_(std::move(columns)), indent_(indent) {}

void TidyTable::row(std::vector<Cell> cells) {
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
}

void TidyTable::write(std::string& text, const TidyStyle& style) const {
    TextOutput output;
    write(output, style);
    text += output.finish();
}

void TidyTable::write(TextOutput& output, const TidyStyle& style) const {
    std::string path;
    const auto textOf = [&](const Cell& cell) -> const std::string& {
        if (cell.node == nullptr)
            return cell.text;
        path.clear();
        cell.node->appendPath(path);
        return path;
    };
    const auto gives = [&](std::size_t column) {
        return columns_[column] == TidyColumn::path || columns_[column] == TidyColumn::sentence;
    };
    std::vector<std::size_t> widths(columns_.size(), 0);
    for (const auto& row : rows_)
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], displayWidth(textOf(row[column])));
    if (style.columns > 0) {
        std::size_t fixed = indent_ + columnGap * (columns_.size() - 1);
        std::size_t giving = 0;
        for (std::size_t column = 0; column < columns_.size(); ++column) {
            fixed += gives(column) ? 0 : widths[column];
            fixed -= widths[column] == 0 ? std::min(fixed, columnGap) : 0;
            giving += gives(column) ? 1 : 0;
        }
        // The columns that give share what is left; those that need less leave it to the others.
        constexpr std::size_t narrowest = 8;
        std::size_t room = style.columns > fixed ? style.columns - fixed : 0;
        for (std::size_t column = 0; column < columns_.size(); ++column) {
            if (!gives(column))
                continue;
            std::size_t others = 0;
            for (std::size_t later = column + 1; later < columns_.size(); ++later)
                others += gives(later) ? widths[later] : 0;
            const std::size_t share = std::max(room / giving, room > others ? room - others : 0);
            widths[column] = std::min(widths[column], std::max(share, narrowest));
            room -= std::min(room, widths[column]);
            --giving;
        }
    }
    // Where texts may be as wide as they like, a few that are very wide must not widen all the others.
    constexpr std::size_t widestAligned = 200;
    const auto blanksBeside = [&](std::size_t column, std::string_view shown) {
        const std::size_t width =
            style.columns > 0 ? widths[column] : std::min(widths[column], widestAligned);
        return std::string(width - std::min(width, displayWidth(shown)), ' ');
    };
    for (const auto& row : rows_) {
        std::string line(indent_, ' ');
        for (std::size_t column = 0; column < row.size(); ++column) {
            const Cell& cell = row[column];
            if (widths[column] == 0) // nothing in any row
                continue;
            if (line.size() > indent_)
                line.append(columnGap, ' ');
            if (!cell.painted.empty()) {
                line += cell.painted;
                line += blanksBeside(column, cell.text);
                continue;
            }
            const Cut cut = columns_[column] == TidyColumn::path ? Cut::start : Cut::end;
            const std::string shown = fitted(textOf(cell), widths[column], cut);
            const std::string blanks = blanksBeside(column, shown);
            if (columns_[column] == TidyColumn::right)
                line += blanks;
            line += style.painted(shown, cell.role);
            if (columns_[column] != TidyColumn::right)
                line += blanks;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        line += '\n';
        output.text() += line;
        output.endPart();
    }
}

std::string groupedNumber(std::int64_t number) {
    std::string digits = std::to_string(number);
    const std::size_t first = number < 0 ? 1 : 0;
    for (std::size_t place = digits.size(); place > first + 3;) {
        place -= 3;
        digits.insert(place, 1, ',');
    }
    return digits;
}

std::string countedText(std::int64_t count, std::string_view one, std::string_view many) {
    return groupedNumber(count) + " " + std::string(count == 1 ? one : many);
}

std::string sizeText(std::int64_t bytes) {
    return ByteFormatter::string(bytes, "0 bytes");
}

std::string signedSizeText(std::int64_t bytes) {
    // The smallest number has no positive counterpart.
    const std::int64_t amount = bytes == INT64_MIN ? INT64_MAX : std::abs(bytes);
    return (bytes < 0 ? "-" : "+") + sizeText(amount);
}

std::string dayText(std::optional<Date> date) {
    constexpr double farthest = 2e11; // seconds; calendars end soon after
    if (!date || !(std::abs(date->time_since_epoch().count()) < farthest))
        return "unknown";
    const auto seconds = static_cast<std::time_t>(std::floor(date->time_since_epoch().count()));
    std::tm day = {};
    if (::localtime_r(&seconds, &day) == nullptr)
        return "unknown";
    char text[32];
    const int length =
        std::snprintf(text, sizeof text, "%04d-%02d-%02d", day.tm_year + 1900, day.tm_mon + 1, day.tm_mday);
    return {text, static_cast<std::size_t>(std::max(length, 0))};
}

std::string wrappedText(std::string_view text, std::size_t columns, std::size_t indent) {
    std::string lines;
    std::size_t width = 0;
    while (!text.empty()) {
        const auto end = text.find(' ');
        const std::string_view word = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        const std::size_t wordWidth = displayWidth(word);
        if (width == 0) {
            lines.append(indent, ' ');
        } else if (columns > 0 && indent + width + 1 + wordWidth > columns) {
            lines += '\n';
            lines.append(indent, ' ');
            width = 0;
        } else {
            lines += ' ';
            ++width;
        }
        lines += word;
        width += wordWidth;
    }
    lines += '\n';
    return lines;
}

} // namespace tarnwell
