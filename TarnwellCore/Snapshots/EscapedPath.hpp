#pragma once

// Names are bytes, stored snapshots are text. So that two names which differ only in bytes that are no text
// stay two in it, such bytes are spelled out: the byte 0xE9 is written as the four characters \xE9. A name
// that has these characters itself gets its backslash written as \x5C; no other backslash is touched. What
// was escaped reads back as exactly the bytes that it was, and as a name that people can read and type into a
// shell
// ($'caf\xE9').

#include <string>
#include <string_view>

namespace tarnwell {

/// UTF-8 for any bytes; a path that is UTF-8 and has no \x before two upper-case hexadecimal digits is as it
/// was.
std::string escapedPath(std::string_view bytes);

/// The bytes that were escaped. Of other texts every \x before two upper-case hexadecimal digits is a byte.
std::string unescapedPath(std::string_view text);

} // namespace tarnwell
