#pragma once

// What the system's own tools say about a folder, and the sums made of that: nothing here goes through the
// library.

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tarnwell::test {

/// A line of `find`, or of a folder the sum of those below it.
struct FoundItem {
    bool isDirectory = false;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t linkCount = 0;
    /// Tells also of what came and went in a folder.
    std::string modified;
    /// Bytes. A folder's own are not counted.
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;

    // Of folders, once they are summed up: what lies below.
    std::int64_t fileCount = 0;
    std::int64_t directoryCount = 0;

    /// A further name of a file that is counted at a smaller path.
    bool isFurtherName = false;

    bool operator==(const FoundItem&) const = default;
};

/// By full path, so that a folder stands before what it holds.
using FoundItems = std::map<std::string, FoundItem>;

/// Everything at and below a folder on its file system, each item with its own sizes.
FoundItems find(const std::filesystem::path& folder);

/// The items with the sums of all folders; hard links are counted at the smallest path.
FoundItems summedUp(FoundItems items);

/// The paths of what is not the same in both, of further names of the same files, and of all folders above.
std::set<std::string> changedPaths(const FoundItems& before, const FoundItems& after);

/// What a command prints on standard output. Throws std::runtime_error when it fails.
std::string outputOf(const std::vector<std::string>& command);

} // namespace tarnwell::test
