#include "Tests/Support/FolderOracle.hpp"

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace tarnwell::test {

namespace {

bool isBefore(const FileNode* a, const FileNode* b) {
    return a->size != b->size ? a->size > b->size : a->name() < b->name();
}

/// What is not as it should be about a node that has an item.
std::string differences(const FileNode& node, const OracleItem& item) {
    std::string text;
    const auto expectEqual = [&](const char* what, std::int64_t seen, std::int64_t expected) {
        if (seen != expected)
            text += std::string(what) + " is " + std::to_string(seen) + ", not " + std::to_string(expected) +
                    "; ";
    };
    expectEqual("folder", node.isDirectory(), item.isDirectory);
    expectEqual("size", node.size, item.size);
    expectEqual("allocated size", node.allocatedSize, item.allocatedSize);
    expectEqual("file count", node.fileCount(), item.fileCount);
    expectEqual("folder count", node.directoryCount(), item.directoryCount);
    expectEqual("further name", node.isHardlinkDuplicate(), item.isHardlinkDuplicate);
    if (std::ranges::adjacent_find(node.children(), std::not_fn(isBefore)) != node.children().end())
        text += "the order is wrong; ";
    return text;
}

} // namespace

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

OracleItems summedUp(OracleItems items) {
    std::set<std::pair<std::uint64_t, std::uint64_t>> seen;
    for (auto& [path, item] : items)
        if (!item.isDirectory)
            item.isHardlinkDuplicate = item.linkCount > 1 && !seen.emplace(item.device, item.inode).second;
    for (auto entry = items.rbegin(); entry != items.rend(); ++entry) {
        OracleItem& item = entry->second;
        item.fileCount += item.isDirectory ? 0 : 1;
        const auto parent = items.find(parentOf(entry->first));
        if (parent == items.end() || parent->first == entry->first)
            continue;
        OracleItem& sum = parent->second;
        sum.fileCount += item.fileCount;
        sum.directoryCount += item.directoryCount + (item.isDirectory ? 1 : 0);
        if (!item.isHardlinkDuplicate) {
            sum.size += item.size;
            sum.allocatedSize += item.allocatedSize;
        }
    }
    return items;
}

OracleItems measureFolder(const std::filesystem::path& folder) {
    namespace fs = std::filesystem;
    OracleItems items;
    const auto add = [&](const std::string& path) {
        struct stat status = {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        const bool isDirectory = S_ISDIR(status.st_mode);
        items[path] = {.isDirectory = isDirectory,
                       .device = static_cast<std::uint64_t>(status.st_dev),
                       .inode = status.st_ino,
                       .linkCount = status.st_nlink,
                       .size = isDirectory ? 0 : status.st_size,
                       .allocatedSize = isDirectory ? 0 : status.st_blocks * 512};
    };
    add(folder);
    using fs::directory_options::skip_permission_denied;
    for (const auto& entry : fs::recursive_directory_iterator(folder, skip_permission_denied))
        add(entry.path());
    return summedUp(std::move(items));
}

void expectAgreement(const FileNode& root, const OracleItems& oracle, const std::set<std::string>& changed) {
    std::size_t seen = 0;
    int faultCount = 0;
    std::string faults;
    root.forEachDescendant([&](const FileNode& node) {
        const std::string path = node.path();
        if (changed.contains(path))
            return true;
        const auto match = oracle.find(path);
        const std::string fault =
            match == oracle.end() ? "not on the disk" : differences(node, match->second);
        ++seen;
        if (!fault.empty() && ++faultCount <= 20)
            faults += path + ": " + fault + "\n";
        return true;
    });
    EXPECT_EQ(faultCount, 0) << faults;
    const auto isSteady = [&](const auto& item) { return !changed.contains(item.first); };
    EXPECT_EQ(seen, static_cast<std::size_t>(std::ranges::count_if(oracle, isSteady)));
}

} // namespace tarnwell::test
