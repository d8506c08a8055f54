#pragma once

// What a scan should find, worked out a second time in the plainest way: recursive lstat calls over whole
// paths, sums by definition.

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tarnwell {
class FileNode;
}

namespace tarnwell::test {

struct OracleItem {
    bool isDirectory = false;
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t fileCount = 0;
    std::int64_t directoryCount = 0;
    bool isHardlinkDuplicate = false;
    std::vector<std::string> childNames; // in the order of a listing
};

/// Every item at or below a folder by full path; hard links are counted at the smallest path.
std::map<std::string, OracleItem> measureFolder(const std::filesystem::path& folder);

/// Expects a scanned tree to agree with the oracle in every node: sizes, counts, marks, order.
void expectAgreement(const FileNode& root, const std::map<std::string, OracleItem>& oracle);

} // namespace tarnwell::test
