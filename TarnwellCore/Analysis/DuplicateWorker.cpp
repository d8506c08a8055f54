#include "TarnwellCore/Analysis/DuplicateWorker.hpp"

#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <cerrno>
#include <ranges>
#include <string>

namespace tarnwell {

namespace {

std::string relativePath(const FileNode& folder) {
    std::vector<const FileNode*> way;
    for (const FileNode* node = &folder; node->parent() != nullptr; node = node->parent())
        way.push_back(node);
    std::string path;
    for (const FileNode* node : way | std::views::reverse) {
        if (!path.empty())
            path += '/';
        path += node->name();
    }
    return path;
}

} // namespace

std::expected<int, FileFault> DuplicateSearch::Worker::folderOf(const FileNode& node) {
    if (node.parent() == current_)
        return folder_ >= 0 ? std::expected<int, FileFault>(folder_) : std::unexpected(fault_);
    leaveFolder();
    current_ = node.parent();
    const auto [root, error] = search_.openRoots_.at(&current_->root());
    folder_ = root;
    errno = error;
    if (root >= 0 && current_->parent() != nullptr)
        folder_ = openFolderBelow(root, relativePath(*current_), nullptr);
    isRoot_ = folder_ == root;
    if (folder_ >= 0)
        return folder_;
    fault_ = FileFault::of(errno);
    if (isForWantOfDescriptors(fault_)) // it may be there the next time
        current_ = nullptr;
    return std::unexpected(fault_);
}

void DuplicateSearch::Worker::leaveFolder() {
    if (folder_ >= 0 && !isRoot_)
        ::close(folder_);
    folder_ = -1;
    current_ = nullptr;
}

} // namespace tarnwell
