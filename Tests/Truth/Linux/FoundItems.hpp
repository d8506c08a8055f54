#pragma once

// What the system's own tools say about a folder: nothing here goes through the library.

#include "Tests/Support/FolderOracle.hpp"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tarnwell::test {

/// A line of `find`.
struct FoundItem {
    OracleItem item;
    /// Tells also of what came and went in a folder.
    std::string modified;

    bool operator==(const FoundItem&) const = default;
};

using FoundItems = std::map<std::string, FoundItem>;

/// Everything at and below a folder on its file system, not summed up.
FoundItems find(const std::filesystem::path& folder);

/// The paths of what is not the same in both, of further names of the same files, and of all folders above.
std::set<std::string> changedPaths(const FoundItems& before, const FoundItems& after);

/// What a command prints on standard output. Throws std::runtime_error when it fails.
std::string outputOf(const std::vector<std::string>& command);

} // namespace tarnwell::test
