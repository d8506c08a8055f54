#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <vector>

namespace tarnwell {

namespace {

bool isCollapsed(const FileNode& folder) {
    return folder.flags.contains(FileNodeFlags::collapsed);
}

void addBytes(FileNode& folder, const FileNode& child) {
    addChecked(folder.size, child.size);
    addChecked(folder.allocatedSize, child.allocatedSize);
    addChecked(folder.reclaimableSize, child.reclaimableSize);
}

/// The folders at the end of a settled folder's children. Before it is rolled up its count of folders is that
/// of these: most folders have none, and their children need not be looked at.
std::span<FileNode*> foldersAtEnd(FileNode& folder) {
    return folder.mutableChildren().last(static_cast<std::size_t>(folder.directoryCount()));
}

void addSubfolders(FileNode& folder, std::vector<FileNode*>& folders) {
    if (isCollapsed(folder))
        std::copy_if(folder.children().begin(), folder.children().end(), std::back_inserter(folders),
                     [](const FileNode* child) { return child->isDirectory(); });
    else
        std::ranges::copy(foldersAtEnd(folder), std::back_inserter(folders));
}

/// Rolls up one tree after another. Keeps its memory from one to the next.
class TreeRollUp {
public:
    void operator()(FileNode& top) {
        folders_.assign(1, &top);
        for (std::size_t index = 0; index < folders_.size(); ++index)
            addSubfolders(*folders_[index], folders_);
        std::for_each(folders_.rbegin(), folders_.rend(), [this](FileNode* folder) { addUp(*folder); });
    }

    /// A folder whose subfolders have been rolled up.
    void addUp(FileNode& folder) {
        if (isCollapsed(folder))
            return;
        const auto subfolders = foldersAtEnd(folder);
        for (const FileNode* child : subfolders) {
            addBytes(folder, *child);
            addChecked(folder.counts().files, child->fileCount());
            addChecked(folder.counts().directories, child->directoryCount());
            folder.includesSharedCloneBlocks =
                folder.includesSharedCloneBlocks || child->includesSharedCloneBlocks;
        }
        if (!subfolders.empty())
            mergeFolders(folder.mutableChildren(), folder.children().size() - subfolders.size());
    }

private:
    /// Sorts the folders at the end of `children` and moves each to its place among the sorted files before
    /// them. Files are found by bisection: in a large folder most of them are not looked at.
    void mergeFolders(std::span<FileNode*> children, std::size_t fileCount) {
        for (FileNode* folder : children.subspan(fileCount))
            sorter_.add(*folder);
        sorted_.resize(children.size() - fileCount);
        sorter_.takeInto(sorted_);
        std::size_t files = fileCount;
        for (std::size_t folders = sorted_.size(); folders > 0; --folders) {
            FileNode* folder = sorted_[folders - 1];
            const auto begin = children.begin();
            const auto end = begin + static_cast<std::ptrdiff_t>(files);
            const auto place = std::upper_bound(begin, end, folder, [](const FileNode* a, const FileNode* b) {
                return NodeSorter::precedes(*a, *b);
            });
            std::move_backward(place, end, end + static_cast<std::ptrdiff_t>(folders));
            files = static_cast<std::size_t>(place - begin);
            children[files + folders - 1] = folder;
        }
    }

    std::vector<FileNode*> folders_; // breadth first
    NodeSorter sorter_;
    std::vector<FileNode*> sorted_;
};

} // namespace

void FolderSums::operator+=(const FolderSums& others) {
    addChecked(size_, others.size_);
    addChecked(allocatedSize_, others.allocatedSize_);
    addChecked(reclaimableSize_, others.reclaimableSize_);
    addChecked(fileCount_, others.fileCount_);
    includesSharedCloneBlocks_ = includesSharedCloneBlocks_ || others.includesSharedCloneBlocks_;
}

void FolderSums::store(FileNode& folder, std::size_t subfolderCount) const {
    folder.size = size_;
    folder.allocatedSize = allocatedSize_;
    folder.reclaimableSize = reclaimableSize_;
    folder.counts() = {.files = fileCount_, .directories = static_cast<std::int32_t>(subfolderCount)};
    folder.includesSharedCloneBlocks = includesSharedCloneBlocks_ || folder.sharesBlocksWithClones();
}

void setHardlinkDuplicate(FileNode& file, bool isDuplicate) {
    if (file.isHardlinkDuplicate() == isDuplicate)
        return;
    FileNode* folder = file.parent();
    const bool isSummed = folder != nullptr && !isCollapsed(*folder);
    if (isDuplicate) {
        file.flags.insert(FileNodeFlags::hardlinkDuplicate);
        if (isSummed) {
            folder->size = checkedSubtract(folder->size, file.size);
            folder->allocatedSize = checkedSubtract(folder->allocatedSize, file.allocatedSize);
            folder->reclaimableSize = checkedSubtract(folder->reclaimableSize, file.reclaimableSize);
        }
    } else {
        file.flags.remove(FileNodeFlags::hardlinkDuplicate);
        if (isSummed)
            addBytes(*folder, file);
    }
}

void rollUp(FileNode& root, int threads) {
    TreeRollUp rollUpTree;
    if (threads < 2)
        return rollUpTree(root);

    // The uppermost folders are opened until there are subtrees enough for the threads to come out even.
    constexpr std::size_t manySubtrees = 512;
    std::vector<FileNode*> folders{&root};
    std::size_t opened = 0;
    while (opened < folders.size() && folders.size() - opened < manySubtrees)
        addSubfolders(*folders[opened++], folders);
    std::atomic<std::size_t> next = opened;
    WorkerThreads([&](WorkerThreads::Place) {
        TreeRollUp rollUpSubtree;
        for (std::size_t index = next++; index < folders.size(); index = next++)
            rollUpSubtree(*folders[index]);
    }).run(threads);
    while (opened > 0)
        rollUpTree.addUp(*folders[--opened]);
}

void aggregate(FileNode& root, int threads) {
    NodeSorter sorter;
    std::vector<FileNode*> folders;
    root.forEachDescendant([&](FileNode& node) {
        if (!node.isDirectory() || isCollapsed(node))
            return true;
        FolderSums sums;
        folders.clear();
        const auto children = node.mutableChildren();
        for (FileNode* child : children) {
            if (child->isDirectory()) {
                folders.push_back(child);
            } else {
                sums.add(*child);
                sorter.add(*child);
            }
        }
        std::ranges::copy(folders, sorter.takeInto(children).begin());
        sums.store(node, folders.size());
        return true;
    });
    rollUp(root, threads);
}

} // namespace tarnwell
