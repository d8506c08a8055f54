#pragma once

// Identifiers of applications, "com.example.editor", and what is named by them. Names are compared by whole
// components, in any case of ASCII letters: "com.example.editor2" has nothing to do with that editor.

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnwell {

/// How a name stands to an identifier.
enum class IdentifierMatch : std::uint8_t {
    none,
    equal,
    below, ///< it is one of the application's parts: "com.example.editor.helper"
};

/// Whether things can be known by this identifier: two components or more, separated by points, of letters,
/// digits, "-" and "_" only, five characters in all. A single word is none, whoever may use it.
bool isUsableIdentifier(std::string_view identifier);

/// How a name, without the end that says what kind of file it is, stands to an identifier. None to one that
/// is not usable. Below one of two components, which may be a maker's, is nothing.
IdentifierMatch matchIdentifier(std::string_view name, std::string_view identifier);

/// The maker's part of an identifier, "com.example", or "io.github.ann" on what hosts many makers' work;
/// empty when nothing comes behind it, and for the maker of the system, whose things are everybody's.
std::string_view makerPrefix(std::string_view identifier);
/// The maker's name in it, "example", and the application's, its last component; empty likewise.
std::string_view makerName(std::string_view identifier);
std::string_view lastComponent(std::string_view identifier);

/// The name of a group container without what stands before an identifier: "group." or a team's ten letters
/// and digits.
std::string_view withoutGroupPrefix(std::string_view name);

/// Whether both are the same but for the case of ASCII letters.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

/// The maker of a security product that this identifier belongs to; empty for any other. Such products guard
/// themselves, and leave a machine without network or worse when they are taken apart by hand: their own
/// uninstallers remove them.
std::string_view securityMaker(std::string_view identifier);

} // namespace tarnwell
