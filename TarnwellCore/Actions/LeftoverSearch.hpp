#pragma once

// Finds what an application has left, by its identifier, its program and its maker's folder.

#include "TarnwellCore/Actions/LeftoverPlaces.hpp"
#include "TarnwellCore/Actions/UninstallPlan.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"

#include <filesystem>
#include <vector>

namespace tarnwell {

struct Leftovers {
    /// Without sizes; by path, each once, none in another or in the application.
    std::vector<UninstallItem> items = {};
    std::vector<std::filesystem::path> unreadable = {};
};

/// Looks through the places; once cancelled, no further. Reads names, property lists and entries of menus,
/// and opens no other file. A folder that is reached by somebody else's link is left out, and what is found
/// through none of the user's or the system's. `others` are all other applications that are installed: what
/// matches the identifier of one of them better is its own.
Leftovers findLeftovers(const InstalledApplication& application,
                        const std::vector<InstalledApplication>& others,
                        const std::vector<LeftoverPlace>& places, const std::filesystem::path& home,
                        const CancellationToken& token);

} // namespace tarnwell
