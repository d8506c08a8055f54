#pragma once

// What an installed application says of itself: a bundle by its Info.plist; one that a user of another
// desktop has put into the home, an AppImage or a folder in "~/.local/opt", by the entry in the menu that
// starts it.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct InstalledApplication {
    enum class Kind : std::uint8_t {
        bundle,
        appImage, ///< a single file
        folder,
    };

    Kind kind = Kind::bundle;
    /// Absolute, with the links on the way resolved.
    std::filesystem::path location = {};
    /// As it is written there; empty when there is none. Need not be usable (ApplicationIdentifier.hpp).
    std::string identifier = {};
    /// What it is called, the name to show first. Never empty.
    std::vector<std::string> names = {};

    bool operator==(const InstalledApplication&) const = default;

    const std::string& name() const { return names.front(); }
};

/// "bundle", "appImage" or "folder".
std::string_view rawValue(InstalledApplication::Kind kind);

/// The bundle at a path; nothing unless it is a folder (no link to one) whose name ends in ".app", in any
/// letter case. One without a readable Info.plist has only its name.
std::optional<InstalledApplication> applicationBundle(const std::filesystem::path& path);

/// The bundles in a folder, and in the folders in it that are no bundles, in the order of their paths.
/// Follows no links.
std::vector<InstalledApplication> applicationBundlesIn(const std::filesystem::path& folder);

/// An entry of the menu, with the program that it starts.
struct MenuEntry {
    std::filesystem::path file;
    std::string name;
    /// Absolute, with the links on the way resolved.
    std::filesystem::path program;

    /// The name of the file without its end, by which desktops know the application.
    std::string identifier() const { return file.stem().native(); }
};

/// The entry in that file; nothing for what is none, or starts no program that it names by an absolute path.
std::optional<MenuEntry> menuEntry(const std::filesystem::path& file);

/// The entries in a folder, in the order of their names.
std::vector<MenuEntry> menuEntriesIn(const std::filesystem::path& folder);

} // namespace tarnwell
