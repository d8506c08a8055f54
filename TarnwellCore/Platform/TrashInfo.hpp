#pragma once

// The note that desktops leave beside each trashed item, "info/NAME.trashinfo", in the format of the
// Trash of freedesktop.org: a heading "[Trash Info]", a line "Path=" with escapes as in URLs, a
// line "DeletionDate=".

#include "TarnwellCore/Platform/Date.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace tarnwell {

struct TrashInfo {
    /// As it is noted, any bytes but NUL: absolute, or relative to the volume. It may be anything.
    std::string path;
    /// Noted without a time zone: taken for this machine's.
    std::optional<Date> deletionDate;
};

/// Nothing for what is no such note: no heading, no path, an escape that is none or stands for NUL.
std::optional<TrashInfo> parseTrashInfo(std::string_view text);

/// Any bytes as visible ASCII without blanks: what is no letter, digit, "/", "-", ".", "_" or "~" becomes "%"
/// and two hexadecimal digits.
std::string percentEscaped(std::string_view bytes);

/// The bytes again; nothing when a "%" is not followed by two hexadecimal digits.
std::optional<std::string> percentDecoded(std::string_view text);

} // namespace tarnwell
