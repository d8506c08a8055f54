#pragma once

// The well-known folders where space piles up, with what to say about each and how to clear it.

#include "TarnwellCore/Analysis/SpaceSaverFinding.hpp"

#include <string>
#include <vector>

namespace tarnwell::SpaceSaverCatalogue {

/// One entry of the catalogue. A finding copies all of it but the paths.
struct DirectoryRule {
    SpaceSaverKind kind;
    std::string title;
    std::string subtitle;
    std::string explanation;
    /// Relative to the home folder; files or folders.
    std::vector<std::string> relativePaths;
    CleanupSafety safety;
    SpaceSaverAction action;
    FileCategory category;

    bool operator==(const DirectoryRule&) const = default;
};

/// The entries. A broad one (all user caches) may hold folders of narrower ones: those may be cleared
/// without a second look, the broad one may not.
const std::vector<DirectoryRule>& directoryRules();

} // namespace tarnwell::SpaceSaverCatalogue
