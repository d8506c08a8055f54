#pragma once

// Places that are never moved away as a whole: what everything else lies in.

#include "TarnwellCore/Analysis/HomeFolder.hpp"

#include <filesystem>
#include <string_view>
#include <vector>

namespace tarnwell {

/// For many paths: for those of one folder that come one after another, the links on the way are looked at
/// once. Confined to one thread.
class ProtectedPlaces {
public:
    explicit ProtectedPlaces(const std::filesystem::path& home);
    /// Why this absolute path (without "." and "..") must stay, for the user; empty when it need not: the
    /// root, the home folder and what it lies in, the folders of the system and those in which mounted
    /// volumes appear, by whichever of their names. Looks at the links on the way to the path and to the
    /// home.
    std::string_view reasonToStay(const std::filesystem::path& path);

private:
    std::vector<HomeFolder> homes_; // the one that was given, and where that leads
    std::filesystem::path folder_;  // the one asked about last
    std::filesystem::path folderWithoutLinks_;
    bool mayHoldWhatStays_ = false;
};

/// The same for a path without links on the way, as scans give them; looks at nothing.
std::string_view reasonToStay(std::string_view path, const HomeFolder& home);
/// Whether something directly in such a folder may have to stay.
bool mayHoldWhatStays(std::string_view folder, const HomeFolder& home);

/// Whether a path is the other one or lies in it, by whole components, compared as text.
bool liesIn(const std::filesystem::path& path, const std::filesystem::path& folder);

} // namespace tarnwell
