#pragma once

// What a scan should find, worked out a second time in the plainest way: what the system says of every path,
// and sums by definition.

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace tarnwell {
class FileNode;
}

namespace tarnwell::test {

/// What the system says of a path.
struct OracleItem {
    bool isDirectory = false;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t linkCount = 0;
    /// Bytes. A folder's own are not counted.
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;

    // Once they are summed up, with all that lies below; a file counts as one.
    std::int64_t fileCount = 0;
    std::int64_t directoryCount = 0;
    /// A further name of a file that is counted at a smaller path.
    bool isHardlinkDuplicate = false;

    bool operator==(const OracleItem&) const = default;
};

/// By full path, so that a folder stands before what it holds.
using OracleItems = std::map<std::string, OracleItem>;

/// The path of the folder that holds an item.
std::string parentOf(const std::string& path);

/// The items with the sums of all folders; hard links are counted at the smallest path.
OracleItems summedUp(OracleItems items);

/// Every item at or below a folder, by `lstat`, summed up.
OracleItems measureFolder(const std::filesystem::path& folder);

/// Expects a scanned tree to agree with the oracle in every node: sizes, counts, marks, order. The paths in
/// `changed` may be anything, or nothing.
void expectAgreement(const FileNode& root, const OracleItems& oracle,
                     const std::set<std::string>& changed = {});

} // namespace tarnwell::test
