#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <algorithm>

namespace tarnwell {

FileTreeBuilder::FileTreeBuilder(std::string_view rootPath, const FileNodeAttributes& attributes)
    : arena_(std::make_shared<TreeArena>()),
      region_(arena_->borrowRegion()),
      root_(region_->makeNode(nullptr, rootPath, true, attributes)) {}

FileTreeBuilder::~FileTreeBuilder() = default;

FileNode& FileTreeBuilder::addFolder(FileNode& parent, std::string_view name,
                                     const FileNodeAttributes& attributes) {
    return attach(parent, *region_->makeNode(&parent, name, true, attributes));
}

FileNode& FileTreeBuilder::addFile(FileNode& parent, std::string_view name, std::int64_t size) {
    FileNodeAttributes attributes;
    attributes.size = attributes.allocatedSize = size;
    return addFile(parent, name, attributes);
}

FileNode& FileTreeBuilder::addFile(FileNode& parent, std::string_view name,
                                   const FileNodeAttributes& attributes) {
    return attach(parent, *region_->makeNode(&parent, name, false, attributes));
}

FileNode& FileTreeBuilder::attach(FileNode& parent, FileNode& child) {
    // The array doubles inside the arena; the smaller ones before it are given up with the tree.
    std::size_t& capacity = childCapacities_[&parent];
    const auto present = parent.mutableChildren();
    std::span<FileNode*> children(present.data(), present.size() + 1);
    if (present.size() == capacity) {
        capacity = std::max<std::size_t>(4, capacity * 2);
        children = region_->makeChildArray(capacity).first(present.size() + 1);
        std::copy(present.begin(), present.end(), children.begin());
    }
    children.back() = &child;
    parent.setChildren(children);
    return child;
}

std::shared_ptr<FileNode> FileTreeBuilder::finish() {
    aggregate(*root_);
    return finishWithoutAggregation();
}

std::shared_ptr<FileNode> FileTreeBuilder::finishWithoutAggregation() {
    return arena_->shareRoot(root_);
}

} // namespace tarnwell
