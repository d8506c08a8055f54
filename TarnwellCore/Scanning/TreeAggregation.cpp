#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
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

bool precedes(const FileNode* a, const FileNode* b) {
    return precedesBySize(*a, *b);
}

void sortBySize(std::span<FileNode*> nodes) {
    // Most folders are small, and a stable sort in place needs no memory.
    if (nodes.size() > 32) {
        std::stable_sort(nodes.begin(), nodes.end(), precedes);
        return;
    }
    for (std::size_t index = 1; index < nodes.size(); ++index) {
        FileNode* node = nodes[index];
        std::size_t place = index;
        for (; place > 0 && precedes(node, nodes[place - 1]); --place)
            nodes[place] = nodes[place - 1];
        nodes[place] = node;
    }
}

/// The folders at the end of a settled folder's children.
std::span<FileNode*> foldersAtEnd(FileNode& folder) {
    const auto children = folder.mutableChildren();
    std::size_t first = children.size();
    while (first > 0 && children[first - 1]->isDirectory())
        --first;
    return children.subspan(first);
}

/// Sorts the folders at the end of `children` and moves each to its place among the sorted files before
/// them. Files are found by bisection: in a large folder most of them are not looked at.
void mergeFolders(std::span<FileNode*> children, std::size_t fileCount, std::vector<FileNode*>& scratch) {
    sortBySize(children.subspan(fileCount));
    scratch.assign(children.begin() + static_cast<std::ptrdiff_t>(fileCount), children.end());
    std::size_t files = fileCount;
    for (std::size_t folders = scratch.size(); folders > 0; --folders) {
        FileNode* folder = scratch[folders - 1];
        const auto begin = children.begin();
        const auto end = begin + static_cast<std::ptrdiff_t>(files);
        const auto place = std::upper_bound(begin, end, folder, precedes);
        std::move_backward(place, end, end + static_cast<std::ptrdiff_t>(folders));
        files = static_cast<std::size_t>(place - begin);
        children[files + folders - 1] = folder;
    }
}

} // namespace

bool precedesBySize(const FileNode& a, const FileNode& b) {
    return a.size != b.size ? a.size > b.size : a.name() < b.name();
}

void settleFiles(FileNode& folder) {
    if (isCollapsed(folder))
        return;
    folder.size = folder.allocatedSize = folder.reclaimableSize = 0;
    folder.fileCount = folder.directoryCount = 0;
    folder.includesSharedCloneBlocks = folder.sharesBlocksWithClones();
    const auto children = folder.mutableChildren();
    for (const FileNode* child : children) {
        if (child->isDirectory())
            continue;
        folder.includesSharedCloneBlocks =
            folder.includesSharedCloneBlocks || child->includesSharedCloneBlocks;
        if (child->flags.contains(FileNodeFlags::inaccessible))
            continue;
        addChecked(folder.fileCount, 1);
        if (!child->isHardlinkDuplicate())
            addBytes(folder, *child);
    }
    const auto firstFolder = std::stable_partition(
        children.begin(), children.end(), [](const FileNode* child) { return !child->isDirectory(); });
    sortBySize(children.first(static_cast<std::size_t>(firstFolder - children.begin())));
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

void rollUp(FileNode& root) {
    std::vector<FileNode*> folders{&root};
    for (std::size_t index = 0; index < folders.size(); ++index) {
        FileNode& folder = *folders[index];
        if (isCollapsed(folder))
            std::copy_if(folder.children().begin(), folder.children().end(), std::back_inserter(folders),
                         [](const FileNode* child) { return child->isDirectory(); });
        else
            for (FileNode* child : foldersAtEnd(folder))
                folders.push_back(child);
    }
    std::vector<FileNode*> scratch;
    for (auto position = folders.rbegin(); position != folders.rend(); ++position) {
        FileNode& folder = **position;
        if (isCollapsed(folder))
            continue;
        const auto subfolders = foldersAtEnd(folder);
        for (const FileNode* child : subfolders) {
            addBytes(folder, *child);
            addChecked(folder.fileCount, child->fileCount);
            addChecked(folder.directoryCount, checkedAdd(child->directoryCount, 1));
            folder.includesSharedCloneBlocks =
                folder.includesSharedCloneBlocks || child->includesSharedCloneBlocks;
        }
        if (!subfolders.empty())
            mergeFolders(folder.mutableChildren(), folder.children().size() - subfolders.size(), scratch);
    }
}

void aggregate(FileNode& root) {
    root.forEachDescendant([](FileNode& node) {
        if (node.isDirectory())
            settleFiles(node);
        return true;
    });
    rollUp(root);
}

} // namespace tarnwell
