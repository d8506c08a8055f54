#pragma once

// Entries of the menu of a freedesktop.org desktop: files "*.desktop", which say how an application is called
// and started.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct DesktopEntry {
    /// In the user's language where the entry has that. May be empty.
    std::string name;
    /// The program and its arguments, without quotes.
    std::vector<std::string> command;

    bool operator==(const DesktopEntry&) const = default;
};

/// Reads the text of an entry. Nothing for what is none, or none of an application; on macOS, where there are
/// no such entries, always.
std::optional<DesktopEntry> readDesktopEntry(std::string_view text);

} // namespace tarnwell
