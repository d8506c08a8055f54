#pragma once

// One file or folder of a scanned tree. Nodes live in the arena of their tree (NodeArena.hpp): a node never
// moves and is never copied, its address is its identity, and whoever holds the tree's root as a
// std::shared_ptr<FileNode> keeps every node of it alive. Parents and children are plain pointers.
//
// A node is written by the one thread that builds it; once the scan has returned, a tree may be read from
// any number of threads.
//
// In memory, what few nodes have lies in front of the node: a folder's children and counts; the private size
// of a file that has one, and before it what it shares with other files. The name lies behind it. A tree is
// mostly files, and a file takes 60 bytes and its name, rounded up to eight.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"
#include "TarnwellCore/Scanning/FileNodeFlags.hpp"
#include "TarnwellCore/Scanning/KeptSharing.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

class NodeArena;

/// How many items are below a folder.
struct FolderCounts {
    std::int32_t files = 0;
    std::int32_t directories = 0;
};

/// What a node is made from. Sizes in bytes, times in seconds since 2001-01-01 00:00:00 UTC.
struct FileNodeAttributes {
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    double modificationSeconds = missingFileTime;
    double accessSeconds = missingFileTime;
    FileNodeFlags flags = {};
    /// Absent: what the classifier says of the name, without path rules.
    std::optional<FileCategory> category = {};
    std::int64_t privateSize = 0;
    bool reportsPrivateSize = false;
    std::uint32_t extFlags = 0;
    /// Of a file, what is kept of its links and shared blocks; null when there is nothing. Copied.
    const SharingAttributes* sharing = nullptr;
};

class FileNode {
public:
    /// Stands for an unknown time in `modificationSeconds` and `accessSeconds`.
    static constexpr double missingTime = missingFileTime;

    FileNode(const FileNode&) = delete;
    FileNode& operator=(const FileNode&) = delete;

    // --- Identity and place ---------------------------------------------------------------------------

    /// Raw bytes. The root's name is the whole path that was scanned, any other node's its last component.
    std::string_view name() const { return {reinterpret_cast<const char*>(this) + nameOffset, nameLength_}; }
    /// Null for the root.
    FileNode* parent() const { return parent_; }
    /// In creation order until aggregation, then larger `size` first, equal sizes by name.
    std::span<FileNode* const> children() const {
        return isDirectory_ ? folderPart().children : std::span<FileNode*>();
    }
    bool isDirectory() const { return isDirectory_; }

    // --- What was measured ----------------------------------------------------------------------------

    /// Apparent bytes; for a folder, after aggregation, the sum over its counted children.
    std::int64_t size;
    /// Bytes allocated on disk; for folders the aggregated sum.
    std::int64_t allocatedSize;
    /// Bytes that deleting this item would free.
    std::int64_t reclaimableSize;
    /// Seconds since 2001-01-01 00:00:00 UTC, or `missingTime`.
    double modificationSeconds;
    double accessSeconds;

private:
    FileNode* parent_;
    std::uint32_t nameLength_;

public:
    /// Extended file-system flags as read from the folder (clone bits among them).
    std::uint32_t extFlags;
    FileNodeFlags flags;
    FileCategory category;

private:
    bool isDirectory_ : 1;
    bool hasPrivatePart_ : 1;
    bool hasLinksPart_ : 1;
    bool hasHeldPart_ : 1;

public:
    /// Whether the file system returned a private size for this entry.
    bool reportsPrivateSize : 1;
    /// Whether this entry, or a counted descendant of this folder, shares blocks with a clone.
    bool includesSharedCloneBlocks : 1;

    /// Bytes that belong to this file alone, as the file system reported them; 0 for a folder.
    std::int64_t privateSize() const {
        return hasPrivatePart_ ? *(reinterpret_cast<const std::int64_t*>(this) - 1) : 0;
    }

    /// Whether `sharing` has anything to say.
    bool keepsSharing() const { return hasLinksPart_ || hasHeldPart_; }
    /// What the scan kept of a file with several links, or with blocks that are not simply its own.
    KeptSharing sharing() const;

    /// 1 for a file; for a folder, after aggregation, the counted files below it.
    std::int32_t fileCount() const { return isDirectory_ ? folderPart().counts.files : 1; }
    /// After aggregation, the folders below this one.
    std::int32_t directoryCount() const { return isDirectory_ ? folderPart().counts.directories : 0; }

    // --- Derived values -------------------------------------------------------------------------------

    bool isSymlink() const { return flags.contains(FileNodeFlags::symlink); }
    bool isPackage() const { return flags.contains(FileNodeFlags::package); }
    bool isHidden() const { return flags.contains(FileNodeFlags::hidden); }
    bool isHardlinkDuplicate() const { return flags.contains(FileNodeFlags::hardlinkDuplicate); }

    /// The node's size in a mode; nothing is computed.
    std::int64_t sizeFor(SizeMode mode) const {
        switch (mode) {
        case SizeMode::apparent:
            return size;
        case SizeMode::allocated:
            return allocatedSize;
        case SizeMode::reclaimable:
            return reclaimableSize;
        }
        return size;
    }

    std::optional<Date> modificationDate() const;
    std::optional<Date> accessDate() const;

    /// The full path: the root's name without a trailing "/", then the names from there down, joined by "/".
    std::string path() const;
    /// Appends what `path()` returns, in one pass and at most one growth of `text`.
    void appendPath(std::string& text) const;
    /// `path()` as a file-system path.
    std::filesystem::path url() const { return path(); }
    /// The root's last path component; any other node's name.
    std::string_view displayName() const;

    const FileNode& root() const;
    FileNode& root();
    /// The number of ancestors.
    std::size_t depth() const;
    /// Parent first, root last.
    std::vector<const FileNode*> ancestors() const;
    /// Root first, this node last.
    std::vector<const FileNode*> breadcrumb() const;

    /// `size` as a fraction of the parent's: 0 without a parent or when the parent's size is below 1, at
    /// most 1.
    double percentOfParent() const;
    /// `size` as a fraction of the root's: 1 for the root itself, 0 when the root's size is below 1, at
    /// most 1.
    double percentOfRoot() const;

    /// Whether these extended flags mark an entry that shares some or all of its blocks.
    static constexpr bool sharesCloneBlocks(std::uint32_t extFlags) {
        return (extFlags & (mayShareBlocksFlag | sharesAllBlocksFlag)) != 0;
    }
    bool sharesBlocksWithClones() const { return sharesCloneBlocks(extFlags); }
    /// Bytes shared with clones: 0 unless this is a file that shares blocks and reported its private size.
    std::int64_t sharedWithClones() const;

    /// What deleting one entry would free: nothing for a placeholder, else the private size where one is
    /// reported, else the allocated size; never negative.
    static constexpr std::int64_t reclaimableBytes(std::int64_t allocatedSize, std::int64_t privateSize,
                                                   bool reportsPrivateSize, bool dataless) {
        if (dataless)
            return 0;
        const std::int64_t bytes = reportsPrivateSize ? privateSize : allocatedSize;
        return bytes > 0 ? bytes : 0;
    }

    // --- Queries --------------------------------------------------------------------------------------

    /// Visits this node and everything below it, depth first, the last child of a folder before the
    /// others. `body(FileNode&)` returns whether to go below the node; an exception it throws ends the walk.
    template <class Body>
    void forEachDescendant(Body&& body) {
        walk<FileNode>(*this, body);
    }
    template <class Body>
    void forEachDescendant(Body&& body) const {
        walk<const FileNode>(*this, body);
    }
    /// The same, where it is part of the plan that `body` throws: its error ends the walk and comes out.
    template <class Body>
    void forEachDescendantChecked(Body&& body) {
        walk<FileNode>(*this, body);
    }
    template <class Body>
    void forEachDescendantChecked(Body&& body) const {
        walk<const FileNode>(*this, body);
    }

    /// Up to `limit` nodes below this one, in the order of `forEachDescendant`, this node left out.
    std::vector<const FileNode*> descendants(std::size_t limit) const;
    /// Up to `limit` files of at least `minimumSize` apparent bytes, largest first; equal sizes in the order
    /// of the walk.
    std::vector<const FileNode*> largestFiles(std::size_t limit, std::int64_t minimumSize) const;
    /// Folders of this name below this node with no such folder between.
    std::vector<const FileNode*> outermostDirectories(std::string_view named) const;
    /// Bytes by category, allocated or apparent: of the counted files below this node (or of this node, when
    /// it is a file), and of the folders that carry sums without nodes. The values add up to the node's size.
    std::map<FileCategory, std::int64_t> categoryBreakdown(bool useAllocatedSize) const;
    /// The node at a full path at or below this node's, or at a path relative to this node; null when there
    /// is none. Names are bytes; on macOS one with composed accents is also found by the decomposed form, and
    /// the other way round, unless another has the very bytes.
    const FileNode* node(std::string_view atPath) const;
    /// Cuts every link between the nodes below this one, and from this one to its children.
    void detachDescendants();

    // --- Building: for the owner of the tree ----------------------------------------------------------

    /// Gives a folder these children, in this order, all of them made with it as their parent. The array must
    /// live as long as the tree: take it from the tree's arena.
    void setChildren(std::span<FileNode*> children);
    /// The children for reordering in place.
    std::span<FileNode*> mutableChildren() {
        return isDirectory_ ? folderPart().children : std::span<FileNode*>();
    }
    /// Of a folder, never of a file.
    FolderCounts& counts() { return folderPart().counts; }

private:
    friend class NodeArena; // which makes room for a node with what lies before and behind it

    struct FolderPart {
        std::span<FileNode*> children;
        FolderCounts counts;
    };
    const FolderPart& folderPart() const { return *(reinterpret_cast<const FolderPart*>(this) - 1); }
    FolderPart& folderPart() { return *(reinterpret_cast<FolderPart*>(this) - 1); }

    /// How much room the parts before the node take.
    static std::size_t frontLength(bool isDirectory, const FileNodeAttributes& attributes) {
        if (isDirectory)
            return sizeof(FolderPart);
        return (attributes.privateSize != 0 ? sizeof(std::int64_t) : 0) +
               (attributes.sharing != nullptr ? attributes.sharing->length() : 0);
    }

    /// With the node itself.
    static std::size_t lengthWithName(std::string_view name) {
        return std::max(sizeof(FileNode), nameOffset + name.size());
    }

    /// Writes the parts before and behind the node as well.
    FileNode(FileNode* parent, std::string_view name, bool isDirectory, const FileNodeAttributes& attributes)
        : size(attributes.size),
          allocatedSize(attributes.allocatedSize),
          reclaimableSize(reclaimableBytes(attributes.allocatedSize, attributes.privateSize,
                                           attributes.reportsPrivateSize,
                                           attributes.flags.contains(FileNodeFlags::dataless))),
          modificationSeconds(attributes.modificationSeconds),
          accessSeconds(attributes.accessSeconds),
          parent_(parent),
          nameLength_(static_cast<std::uint32_t>(name.size())),
          extFlags(attributes.extFlags),
          flags(attributes.flags),
          category(attributes.category ? *attributes.category : categoryByName(name, isDirectory)),
          isDirectory_(isDirectory),
          hasPrivatePart_(!isDirectory && attributes.privateSize != 0),
          hasLinksPart_(false),
          hasHeldPart_(false),
          reportsPrivateSize(attributes.reportsPrivateSize),
          includesSharedCloneBlocks(sharesCloneBlocks(attributes.extFlags)) {
        if (isDirectory)
            new (&folderPart()) FolderPart;
        else if (hasPrivatePart_)
            new (reinterpret_cast<std::int64_t*>(this) - 1) std::int64_t(attributes.privateSize);
        if (!isDirectory && attributes.sharing != nullptr) [[unlikely]]
            keep(*attributes.sharing);
        name.copy(reinterpret_cast<char*>(this) + nameOffset, name.size());
    }

    void keep(const SharingAttributes& sharing);

    static FileCategory categoryByName(std::string_view name, bool isDirectory);

    template <class Node, class Body>
    static void walk(Node& start, Body& body) {
        std::vector<Node*> pending{&start};
        while (!pending.empty()) {
            Node* node = pending.back();
            pending.pop_back();
            if (body(*node))
                pending.insert(pending.end(), node->children().begin(), node->children().end());
        }
    }

    char nameStart_[4]; // the rest lies behind the node

    static constexpr std::size_t nameOffset = 60;
};

static_assert(sizeof(FileNode) == 64, "a tree of tens of millions of nodes has to fit in memory");

} // namespace tarnwell
