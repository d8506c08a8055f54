#pragma once

// Texts in columns of a terminal: how wide a name is, and how it is made to fit.
//
// Names are any bytes. All of these measure and give a name as `harmless` shows it (HarmlessText.hpp), so
// what they give may be written into a cell as it is. Widths are those of `characterWidth`, summed over the
// characters, as the C library and screen libraries sum them: an accent takes no column, 日 takes two, and
// emoji that are joined to one take the columns of each, whatever a terminal makes of them.
//
// Time and memory grow with the length of the text. Safe from any thread.

#include <cstddef>
#include <string>
#include <string_view>

namespace tarnwell {

/// Columns of the text; of a line, as it cannot hold another.
std::size_t displayWidth(std::string_view text);

/// What is left out of a text that is too wide.
enum class Cut {
    end,    ///< "begin…", for names
    middle, ///< "be…end", for names whose extension matters
    start,  ///< "…the end", for paths
};

/// The text where it fits into `width` columns, else as much of it as fits with "…" in place of what is left
/// out. At most `width` columns, empty for 0. Characters that are joined, and accents, stay with the one
/// before.
std::string fitted(std::string_view text, std::size_t width, Cut cut = Cut::end);

/// Where the text stands in a column that is wider.
enum class Side { left, right };

/// `fitted`, with blanks to exactly `width` columns.
std::string padded(std::string_view text, std::size_t width, Side side = Side::left, Cut cut = Cut::end);

} // namespace tarnwell
