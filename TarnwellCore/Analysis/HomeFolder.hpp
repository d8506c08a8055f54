#pragma once

// The user's home folder under both its names: the path that users and settings write, and the path without
// links, by which a scan shows it. Where the home is reached through a link, the two differ.

#include <filesystem>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A value, made by looking at the links on the way once. Safe from any thread.
class HomeFolder {
public:
    explicit HomeFolder(const std::filesystem::path& path);

    /// The path as it was given, without repeated or trailing "/", and the one without links; one when they
    /// are the same, none for an empty path.
    const std::vector<std::filesystem::path>& spellings() const { return spellings_; }

    /// A path below the home under each of its names, as it was given first; a path elsewhere as it is.
    std::vector<std::filesystem::path> spellingsOf(const std::filesystem::path& path) const;

    /// Whether the home is this folder or lies in it.
    bool isWithin(const std::filesystem::path& folder) const;

    /// Whether the path is that of an item directly in the home.
    bool holdsDirectly(const std::filesystem::path& path) const;

private:
    std::vector<std::filesystem::path> spellings_;
};

/// Whether `inner` is `outer` or lies in it, by whole components. Both are compared as bytes.
bool isWithin(const std::filesystem::path& inner, const std::filesystem::path& outer);

} // namespace tarnwell
