#pragma once

// Words, figures, colours and columns of texts for people.

#include "TarnwellCore/Platform/Date.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

class FileNode;
class TextOutput;

/// What a piece of text is, which says how it looks.
enum class TidyRole : std::uint8_t { plain, heading, quiet, strong, good, warning, danger };

/// How texts look in one place.
struct TidyStyle {
    bool hasColors = false;
    bool hasBars = false;
    /// Columns to fit into; 0 for no limit.
    std::size_t columns = 0;

    std::string painted(std::string_view text, TidyRole role) const;
    /// A bar of this many columns, filled up to a fraction.
    std::string bar(double fraction, std::size_t width) const;
};

/// How a column of a table stands.
enum class TidyColumn : std::uint8_t {
    left,
    right,    ///< for figures
    path,     ///< takes what room is left; a path loses its beginning when that is too little
    sentence, ///< takes what room is left, and loses its end
};

/// Rows in aligned columns.
class TidyTable {
public:
    explicit TidyTable(std::vector<TidyColumn> columns, std::size_t indent = 0);

    struct Cell {
        /// Any bytes; shown harmlessly.
        std::string text;
        TidyRole role = TidyRole::plain;
        /// Stands as it is, already painted; `text` is then only its width.
        std::string painted = {};
        /// Not null: the text is this node's path, which is made when it is written.
        const FileNode* node = nullptr;
    };
    void row(std::vector<Cell> cells);
    bool isEmpty() const { return rows_.empty(); }

    void write(std::string& text, const TidyStyle& style) const;
    void write(TextOutput& output, const TidyStyle& style) const;

private:
    std::vector<TidyColumn> columns_;
    std::size_t indent_;
    std::vector<std::vector<Cell>> rows_;
};

/// "1 file", "12,345 files".
std::string countedText(std::int64_t count, std::string_view one, std::string_view many);
/// "12,345,678".
std::string groupedNumber(std::int64_t number);
/// "4.7 GB"; "0 bytes".
std::string sizeText(std::int64_t bytes);
/// "+4.7 GB", "-1 MB".
std::string signedSizeText(std::int64_t bytes);
/// "2024-05-01", in the user's time zone; "unknown".
std::string dayText(std::optional<Date> date);
/// The sentence with its lines broken to fit; each begins with so many blanks.
std::string wrappedText(std::string_view text, std::size_t columns, std::size_t indent);

} // namespace tarnwell
