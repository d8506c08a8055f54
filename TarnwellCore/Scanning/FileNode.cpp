#include "TarnwellCore/Scanning/FileNode.hpp"

#include "TarnwellCore/Classification/FileClassifier.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/NameForms.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
#include <cstring>
#include <memory>

namespace tarnwell {

namespace {

std::optional<Date> dateUnlessMissing(double seconds) {
    if (seconds == FileNode::missingTime)
        return std::nullopt;
    return dateFromReferenceSeconds(seconds);
}

double cappedFraction(std::int64_t part, std::int64_t whole) {
    if (whole < 1)
        return 0;
    return std::min(static_cast<double>(part) / static_cast<double>(whole), 1.0);
}

/// The root's name as the start of longer paths.
std::string_view pathPrefix(std::string_view rootName) {
    if (!rootName.empty() && rootName.back() == '/')
        rootName.remove_suffix(1);
    return rootName;
}

/// Takes the next component off the front of a path; empty at its end.
std::string_view takeComponent(std::string_view& path) {
    while (!path.empty() && path.front() == '/')
        path.remove_prefix(1);
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

/// What is left of `path` below `prefix`, compared by whole components; nothing when it lies elsewhere.
std::optional<std::string_view> pathBelow(std::string_view prefix, std::string_view path) {
    if (prefix.starts_with('/') != path.starts_with('/'))
        return std::nullopt;
    for (;;) {
        const std::string_view expected = takeComponent(prefix);
        if (expected.empty())
            return path;
        if (!isSameName(takeComponent(path), expected))
            return std::nullopt;
    }
}

} // namespace

FileCategory FileNode::categoryByName(std::string_view name, bool isDirectory) {
    name = PathUtil::lastComponent(name); // a root's name is a path
    if (!isDirectory)
        return FileClassifier::classify(name, std::nullopt, false);
    return FileClassifier::classifyDirectoryByNameOrExtension(name, PathUtil::fileExtension(name))
        .value_or(FileCategory::folder);
}

std::optional<Date> FileNode::modificationDate() const {
    return dateUnlessMissing(modificationSeconds);
}

std::optional<Date> FileNode::accessDate() const {
    return dateUnlessMissing(accessSeconds);
}

std::string FileNode::path() const {
    std::string text;
    appendPath(text);
    return text;
}

void FileNode::appendPath(std::string& text) const {
    if (parent_ == nullptr) {
        text += name().empty() ? std::string_view("/") : name();
        return;
    }
    std::size_t length = 0;
    const FileNode* node = this;
    for (; node->parent_ != nullptr; node = node->parent_)
        length += 1 + node->nameLength_;
    const std::string_view prefix = pathPrefix(node->name());
    const std::size_t start = text.size();
    text.resize(start + prefix.size() + length);
    prefix.copy(text.data() + start, prefix.size());
    char* end = text.data() + text.size();
    for (node = this; node->parent_ != nullptr; node = node->parent_) {
        end -= node->nameLength_;
        node->name().copy(end, node->nameLength_);
        *--end = '/';
    }
}

std::string_view FileNode::displayName() const {
    return parent_ == nullptr ? PathUtil::lastComponent(name()) : name();
}

const FileNode& FileNode::root() const {
    const FileNode* node = this;
    while (node->parent_ != nullptr)
        node = node->parent_;
    return *node;
}

FileNode& FileNode::root() {
    return const_cast<FileNode&>(static_cast<const FileNode*>(this)->root());
}

std::size_t FileNode::depth() const {
    std::size_t count = 0;
    for (const FileNode* node = parent_; node != nullptr; node = node->parent_)
        ++count;
    return count;
}

std::vector<const FileNode*> FileNode::ancestors() const {
    std::vector<const FileNode*> nodes;
    for (const FileNode* node = parent_; node != nullptr; node = node->parent_)
        nodes.push_back(node);
    return nodes;
}

std::vector<const FileNode*> FileNode::breadcrumb() const {
    std::vector<const FileNode*> nodes = ancestors();
    std::reverse(nodes.begin(), nodes.end());
    nodes.push_back(this);
    return nodes;
}

double FileNode::percentOfParent() const {
    return parent_ == nullptr ? 0 : cappedFraction(size, parent_->size);
}

double FileNode::percentOfRoot() const {
    return parent_ == nullptr ? 1 : cappedFraction(size, root().size);
}

std::int64_t FileNode::sharedWithClones() const {
    if (isDirectory_ || !reportsPrivateSize || !sharesBlocksWithClones())
        return 0;
    return std::max<std::int64_t>(checkedSubtract(allocatedSize, privateSize()), 0);
}

std::vector<const FileNode*> FileNode::descendants(std::size_t limit) const {
    std::vector<const FileNode*> found;
    forEachDescendant([&](const FileNode& node) {
        if (&node != this && found.size() < limit)
            found.push_back(&node);
        return found.size() < limit;
    });
    return found;
}

std::vector<const FileNode*> FileNode::largestFiles(std::size_t limit, std::int64_t minimumSize) const {
    struct Candidate {
        const FileNode* node;
        std::size_t order;
    };
    const auto isLarger = [](const Candidate& a, const Candidate& b) {
        return a.node->size != b.node->size ? a.node->size > b.node->size : a.order < b.order;
    };
    // A heap of the best so far, its worst in front: memory stays with the limit, not with the tree.
    std::vector<Candidate> best;
    std::size_t order = 0;
    forEachDescendant([&](const FileNode& node) {
        if (node.isDirectory_ || node.size < minimumSize || limit == 0)
            return true;
        const Candidate candidate{&node, order++};
        if (best.size() == limit) {
            if (!isLarger(candidate, best.front()))
                return true;
            std::pop_heap(best.begin(), best.end(), isLarger);
            best.pop_back();
        }
        best.push_back(candidate);
        std::push_heap(best.begin(), best.end(), isLarger);
        return true;
    });
    std::sort_heap(best.begin(), best.end(), isLarger);
    std::vector<const FileNode*> nodes;
    nodes.reserve(best.size());
    for (const Candidate& candidate : best)
        nodes.push_back(candidate.node);
    return nodes;
}

std::vector<const FileNode*> FileNode::outermostDirectories(std::string_view named) const {
    std::vector<const FileNode*> found;
    forEachDescendant([&](const FileNode& node) {
        if (&node == this || !node.isDirectory_ || node.name() != named)
            return true;
        found.push_back(&node);
        return false;
    });
    return found;
}

std::map<FileCategory, std::int64_t> FileNode::categoryBreakdown(bool useAllocatedSize) const {
    std::map<FileCategory, std::int64_t> bytes;
    const FileNodeFlags uncounted = FileNodeFlags::hardlinkDuplicate | FileNodeFlags::inaccessible;
    forEachDescendant([&](const FileNode& node) {
        const bool isCounted = node.isDirectory_ ? node.flags.contains(FileNodeFlags::collapsed)
                                                 : &node == this || !node.flags.intersects(uncounted);
        if (isCounted)
            addChecked(bytes[node.category], useAllocatedSize ? node.allocatedSize : node.size);
        return !node.flags.contains(FileNodeFlags::collapsed);
    });
    return bytes;
}

const FileNode* FileNode::node(std::string_view atPath) const {
    std::string_view rest = atPath;
    if (const auto below = pathBelow(path(), atPath))
        rest = *below;
    else if (atPath.starts_with('/'))
        return nullptr;
    const FileNode* node = this;
    for (;;) {
        const std::string_view component = takeComponent(rest);
        if (component.empty())
            return node;
        const auto children = node->children();
        auto match = std::find_if(children.begin(), children.end(),
                                  [&](const FileNode* child) { return child->name() == component; });
        if (match == children.end() && mayHaveOtherForms(component))
            match = std::find_if(children.begin(), children.end(),
                                 [&](const FileNode* child) { return isSameName(child->name(), component); });
        if (match == children.end())
            return nullptr;
        node = *match;
    }
}

void FileNode::detachDescendants() {
    std::vector<FileNode*> pending{this};
    while (!pending.empty()) {
        FileNode* node = pending.back();
        pending.pop_back();
        for (FileNode* child : node->children()) {
            child->parent_ = nullptr;
            pending.push_back(child);
        }
        if (node->isDirectory_)
            node->setChildren({});
    }
}

void FileNode::setChildren(std::span<FileNode*> children) {
    folderPart().children = children;
}

// From the private size on, towards lower addresses: the links; a word that holds the file system's number,
// the traits and the count of extents; the bytes that are the file's own, if known; the references of a clone
// group; the extents.

void FileNode::keep(const SharingAttributes& sharing) {
    auto* place = reinterpret_cast<std::byte*>(this) - (hasPrivatePart_ ? sizeof(std::int64_t) : 0);
    if (sharing.links.count > 0) {
        place -= sizeof(FileLinks);
        new (place) FileLinks(sharing.links);
        hasLinksPart_ = true;
    }
    if (sharing.held == nullptr)
        return;
    hasHeldPart_ = true;
    const HeldSpace& held = *sharing.held;
    const std::span<const SharedExtent> extents = sharing.extents();
    const std::uint8_t traits = extents.size() == held.extents.size()
                                    ? held.traits
                                    : static_cast<std::uint8_t>(held.traits | HeldSpace::encoded);
    place -= sizeof(std::uint64_t);
    new (place)
        std::uint64_t(std::uint64_t{held.fileSystem} << 32 | std::uint64_t{traits} << 24 | extents.size());
    if ((traits & HeldSpace::knowsExclusive) != 0)
        new (place -= sizeof(std::int64_t)) std::int64_t(held.exclusive);
    if ((traits & HeldSpace::cloneGroup) != 0)
        new (place -= sizeof(std::uint64_t)) std::uint64_t(held.references);
    place -= extents.size_bytes();
    std::uninitialized_copy(extents.begin(), extents.end(), reinterpret_cast<SharedExtent*>(place));
}

KeptSharing FileNode::sharing() const {
    KeptSharing kept;
    const auto* place =
        reinterpret_cast<const std::byte*>(this) - (hasPrivatePart_ ? sizeof(std::int64_t) : 0);
    if (hasLinksPart_)
        kept.links = *reinterpret_cast<const FileLinks*>(place -= sizeof(FileLinks));
    if (!hasHeldPart_)
        return kept;
    kept.hasHeld = true;
    const std::uint64_t word = *reinterpret_cast<const std::uint64_t*>(place -= sizeof(std::uint64_t));
    kept.fileSystem = static_cast<std::uint32_t>(word >> 32);
    kept.traits = static_cast<std::uint8_t>(word >> 24);
    const std::size_t count = word & SharingAttributes::largestExtentCount;
    if ((kept.traits & HeldSpace::knowsExclusive) != 0)
        kept.exclusive = *reinterpret_cast<const std::int64_t*>(place -= sizeof(std::int64_t));
    if ((kept.traits & HeldSpace::cloneGroup) != 0)
        kept.references = static_cast<std::uint32_t>(
            *reinterpret_cast<const std::uint64_t*>(place -= sizeof(std::uint64_t)));
    place -= count * sizeof(SharedExtent);
    kept.extents = {reinterpret_cast<const SharedExtent*>(place), count};
    return kept;
}

} // namespace tarnwell
