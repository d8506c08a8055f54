#pragma once

// What a terminal is asked for beside drawing, in sequences that terminals of today share and that
// descriptions of terminals do not hold (ECMA-48, xterm's control sequences).

#include <cstddef>
#include <string>
#include <string_view>

namespace tarnwell::TerminalRequests {

/// Answered as `TerminalAnswer` has it.
inline constexpr std::string_view askForGround = "\x1B]11;?\x1B\\";
inline constexpr std::string_view askForAttributes = "\x1B[c";
inline constexpr std::string_view askForSign = "\x1B[5n";

/// Pastes between marks; the mouse with buttons, drags, and columns beyond 223.
inline constexpr std::string_view modesOn = "\x1B[?2004h\x1B[?1000h\x1B[?1002h\x1B[?1006h";
inline constexpr std::string_view modesOff = "\x1B[?1006l\x1B[?1002l\x1B[?1000l\x1B[?2004l";

/// Whether a terminal of this type (TERM) leaves out silently what it does not know of these.
bool areUnderstoodBy(std::string_view type);

/// Whether the terminal says that it draws every colour, by a variable of the environment: what descriptions
/// of terminals say of that is seldom true.
bool drawsAllColours(std::string_view type);

/// Puts a text of any bytes into the clipboard (OSC 52).
inline constexpr std::size_t longestCopy = std::size_t{64} << 10;
std::string copy(std::string_view text);

/// Sets LC_CTYPE to what the environment asks for; where it asks for UTF-8 in a language that is not
/// installed, to UTF-8 all the same. Gives whether characters are UTF-8 now.
bool chooseCharacters();

} // namespace tarnwell::TerminalRequests
