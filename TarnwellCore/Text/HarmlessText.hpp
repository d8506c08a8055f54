#pragma once

// Names where people read them. A name is any bytes, and a terminal obeys some of them: it moves the cursor,
// sends answers to the program that reads it, turns the order of letters round. Shown harmlessly, a name
// stays in its row and reads in its order.
//
// What is shown as an escape:
//
//     \n \t \r              these three
//     \x00 … \x1F, \x7F     the other control characters of ASCII
//     \x80 … \xFF           each byte that is no part of a UTF-8 character
//     \u{80} … \u{9F}       the further control characters
//     \u{202E} …            what turns the order of text round (also U+061C, U+200E, U+200F,
//                           U+202A to U+202E, U+2066 to U+2069) or ends its line (U+2028, U+2029),
//                           and what cannot be seen: U+00AD, U+180E, U+200B, U+2060 to U+206F, U+FEFF,
//                           U+FFF9 to U+FFFB, format characters of shorthand and music, and all from
//                           U+E0000 to U+E0FFF
//     \u{200C} \u{200D}     joiners, unless between two visible characters beyond the Latin letters:
//                           Persian, Indic scripts and emoji are written with them
//     \u{FE00} … \u{FE0F}   variation selectors, unless behind a character that may have one
//
// Everything else stays as it is, backslashes too: the text is for reading, not for reading back. It is valid
// UTF-8, at most five times as long as the bytes (nine for tags), and stays the same when shown harmlessly
// again.

#include <string>
#include <string_view>

namespace tarnwell {

/// How a text for people shows names. Whoever prints the text chooses: `verbatim` for files, pipes and other
/// programs, `harmless` for a terminal.
enum class NameStyle : bool { verbatim, harmless };

/// The style for a stream of which `isTerminal` says whether it is one.
constexpr NameStyle nameStyle(bool isTerminal) {
    return isTerminal ? NameStyle::harmless : NameStyle::verbatim;
}

/// Whether the bytes are shown as they are. Quick for plain ASCII.
bool isHarmless(std::string_view bytes);

/// The bytes with the escapes above. Time and memory grow with the number of bytes.
std::string harmless(std::string_view bytes);
void appendHarmless(std::string& text, std::string_view bytes);

/// The bytes in a style: as they are, or `harmless`.
std::string styled(std::string_view bytes, NameStyle style);
void appendStyled(std::string& text, std::string_view bytes, NameStyle style);

/// A JSON document, or whole lines of one, with escapes of JSON (\u202e) for the same characters: to a reader
/// it is the same document. Line feeds between its elements stay.
std::string harmlessJSON(std::string_view document);

} // namespace tarnwell
