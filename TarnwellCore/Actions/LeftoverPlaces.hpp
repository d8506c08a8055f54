#pragma once

// Where applications leave things: in the Library folders of a user and of a machine, and in the XDG base directories
// of freedesktop.org.

#include "TarnwellCore/Analysis/CleanupSafety.hpp"

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A folder, and by what its items are known there.
struct LeftoverPlace {
    enum class Holds : std::uint8_t {
        items,         ///< named by identifiers
        groups,        ///< named by identifiers, which may stand behind the mark of a group
        launchEntries, ///< property lists that name a program
        bundles,       ///< that name their identifiers themselves
        menuEntries,   ///< which start programs
        links,         ///< to programs
    };

    /// What the path stands below: the user's home, or the machine's root.
    std::filesystem::path base;
    std::filesystem::path relativePath;
    Holds holds = Holds::items;
    CleanupSafety safety = CleanupSafety::reviewNeeded;
    /// Ends of file names that are no part of identifiers, separated by "|".
    std::string_view ends = {};
    /// Whether people's names of applications and makers mean something here.
    bool hasNames = false;

    std::filesystem::path folder() const { return base / relativePath; }
};

/// The user's folders as freedesktop.org's XDG base directories have them; absolute.
struct BaseFolders {
    std::filesystem::path configuration;
    std::filesystem::path cache;
    std::filesystem::path data;
    std::filesystem::path state;

    /// Those of a home; of this process's own as its environment says.
    static BaseFolders of(const std::filesystem::path& home);
};

std::vector<LeftoverPlace> leftoverPlaces(const std::filesystem::path& home,
                                          const std::filesystem::path& machineRoot,
                                          const BaseFolders& folders);

} // namespace tarnwell
