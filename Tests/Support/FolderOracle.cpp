#include "Tests/Support/FolderOracle.hpp"

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <utility>

namespace tarnwell::test {

namespace {

using Items = std::map<std::string, OracleItem>;
using INode = std::pair<dev_t, ino_t>;

struct stat statusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

void collect(const std::string& path, Items& items, std::map<INode, std::set<std::string>>& links) {
    OracleItem item;
    const struct stat status = statusOf(path);
    item.isDirectory = S_ISDIR(status.st_mode);
    if (!item.isDirectory) {
        item.size = status.st_size;
        item.allocatedSize = status.st_blocks * 512;
        item.fileCount = 1;
        if (status.st_nlink > 1)
            links[{status.st_dev, status.st_ino}].insert(path);
    } else if (DIR* stream = ::opendir(path.c_str())) {
        while (const dirent* entry = ::readdir(stream)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            item.childNames.push_back(name);
            collect(path + "/" + name, items, links);
        }
        ::closedir(stream);
    }
    items[path] = item;
}

void sumUp(const std::string& path, Items& items) {
    OracleItem& item = items[path];
    if (!item.isDirectory)
        return;
    for (const std::string& name : item.childNames) {
        sumUp(path + "/" + name, items);
        const OracleItem& child = items[path + "/" + name];
        item.fileCount += child.fileCount;
        item.directoryCount += child.directoryCount + (child.isDirectory ? 1 : 0);
        if (child.isHardlinkDuplicate)
            continue;
        item.size += child.size;
        item.allocatedSize += child.allocatedSize;
    }
    std::sort(item.childNames.begin(), item.childNames.end(),
              [&](const std::string& a, const std::string& b) {
                  const std::int64_t sizeOfA = items[path + "/" + a].size;
                  const std::int64_t sizeOfB = items[path + "/" + b].size;
                  return sizeOfA != sizeOfB ? sizeOfA > sizeOfB : a < b;
              });
}

} // namespace

Items measureFolder(const std::filesystem::path& folder) {
    Items items;
    std::map<INode, std::set<std::string>> links;
    collect(folder.string(), items, links);
    for (const auto& [inode, paths] : links)
        for (auto path = std::next(paths.begin()); path != paths.end(); ++path)
            items[*path].isHardlinkDuplicate = true;
    sumUp(folder.string(), items);
    return items;
}

void expectAgreement(const FileNode& root, const Items& oracle) {
    std::size_t count = 0;
    root.forEachDescendant([&](const FileNode& node) {
        ++count;
        const std::string path = node.path();
        const auto match = oracle.find(path);
        if (match == oracle.end()) {
            ADD_FAILURE() << "not on the disk: " << path;
            return true;
        }
        const OracleItem& item = match->second;
        EXPECT_EQ(node.isDirectory(), item.isDirectory) << path;
        EXPECT_EQ(node.size, item.size) << path;
        EXPECT_EQ(node.allocatedSize, item.allocatedSize) << path;
        EXPECT_EQ(node.fileCount(), item.fileCount) << path;
        EXPECT_EQ(node.directoryCount(), item.directoryCount) << path;
        EXPECT_EQ(node.isHardlinkDuplicate(), item.isHardlinkDuplicate) << path;
        std::vector<std::string> names;
        for (const FileNode* child : node.children())
            names.emplace_back(child->name());
        EXPECT_EQ(names, item.childNames) << path;
        return true;
    });
    EXPECT_EQ(count, oracle.size());
}

} // namespace tarnwell::test
