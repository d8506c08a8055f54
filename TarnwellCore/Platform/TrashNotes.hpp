#pragma once

// What the desktop itself knows of an item that lies in a Trash.

#include "TarnwellCore/Platform/Date.hpp"

#include <filesystem>
#include <optional>
#include <string>

namespace tarnwell {

/// Where an item was, as its note says.
struct NotedOrigin {
    /// An absolute folder, and the path below it, without "..".
    std::filesystem::path base;
    std::string relativePath;
    /// The note is on a volume that others may have written to: no link on the way from `base` is to be
    /// trusted.
    bool isOfOthers = false;
    std::optional<Date> trashedAt = {};
};

/// Reads the note on the item at a path in a Trash folder. Nothing where there is none, where it is no note,
/// or where it names a place that a note there may not name (outside of the volume that it lies on). On macOS
/// there are none. Opens no link and nothing but a regular file.
std::optional<NotedOrigin> notedOrigin(const std::filesystem::path& location);

/// Removes the note on an item that has left the Trash. Does its best.
void removeNote(const std::filesystem::path& location) noexcept;

} // namespace tarnwell
