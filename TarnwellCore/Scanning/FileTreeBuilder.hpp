#pragma once

// Makes trees by hand: for tests, for viewers that show something other than a scan.

#include "TarnwellCore/Scanning/NodeArena.hpp"

#include <memory>
#include <string_view>
#include <unordered_map>

namespace tarnwell {

/// Builds one tree. Confined to one thread. The nodes live as long as the root that `finish` returns.
class FileTreeBuilder {
public:
    /// Starts a tree whose root is a folder with this whole path as its name.
    explicit FileTreeBuilder(std::string_view rootPath, const FileNodeAttributes& attributes = {});
    ~FileTreeBuilder();

    FileNode& root() { return *root_; }

    /// Appends a folder to `parent`, a folder of this tree.
    FileNode& addFolder(FileNode& parent, std::string_view name, const FileNodeAttributes& attributes = {});

    /// Appends a file with equal apparent and allocated size.
    FileNode& addFile(FileNode& parent, std::string_view name, std::int64_t size);
    FileNode& addFile(FileNode& parent, std::string_view name, const FileNodeAttributes& attributes);

    /// The tree with sums rolled up and children in order. The builder must not be used afterwards.
    std::shared_ptr<FileNode> finish();
    /// The tree as built: sums as given, children in creation order.
    std::shared_ptr<FileNode> finishWithoutAggregation();

private:
    FileNode& attach(FileNode& parent, FileNode& child);

    std::shared_ptr<TreeArena> arena_;
    TreeArena::Lease region_;
    FileNode* root_;
    std::unordered_map<FileNode*, std::size_t> childCapacities_;
};

} // namespace tarnwell
