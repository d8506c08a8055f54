#pragma once

// The memory of one scanned tree: nodes, their names and their child arrays, in a few large regions that
// are released at once. A thread borrows a region of its own, so that threads never wait for one another; one
// that comes later goes on with the region of one that has left.

#include "TarnwellCore/Platform/UnfairLock.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <vector>

namespace tarnwell {

/// One growing region. Used by one thread at a time; memory is given back only when the arena goes.
class NodeArena {
public:
    NodeArena() = default;
    ~NodeArena();
    NodeArena(const NodeArena&) = delete;
    NodeArena& operator=(const NodeArena&) = delete;

    /// A node with a copy of `name`, without children; `parent` is null for a root. Reclaimable
    /// size and clone mark follow from the attributes. Throws std::bad_alloc.
    FileNode* makeNode(FileNode* parent, std::string_view name, bool isDirectory,
                       const FileNodeAttributes& attributes) {
        const std::size_t front = FileNode::frontLength(isDirectory, attributes);
        auto* place = static_cast<std::byte*>(allocate(front + FileNode::lengthWithName(name)));
        return new (place + front) FileNode(parent, name, isDirectory, attributes);
    }

    /// Room for `count` child pointers, not initialised. Throws std::bad_alloc.
    std::span<FileNode*> makeChildArray(std::size_t count);

    /// Bytes handed out so far.
    std::size_t bytesUsed() const { return bytesUsed_; }

private:
    struct Chunk {
        void* base;
        std::size_t length;
    };

    void* allocate(std::size_t bytes) {
        bytes = (bytes + 7) & ~std::size_t{7};
        if (bytes > available_) [[unlikely]]
            addRoom(bytes);
        void* place = next_;
        next_ += bytes;
        available_ -= bytes;
        bytesUsed_ += bytes;
        return place;
    }
    void addRoom(std::size_t bytes);
    void addChunk(std::size_t atLeast);

    std::byte* next_ = nullptr;
    std::size_t available_ = 0; // from next_ on
    std::size_t untouched_ = 0; // of the last chunk, after what is available
    std::size_t bytesUsed_ = 0;
    std::vector<Chunk> chunks_;
};

/// The regions of one tree. A root made by `shareRoot` keeps all of them alive.
class TreeArena : public std::enable_shared_from_this<TreeArena> {
    struct GiveBack {
        TreeArena* arena = nullptr;
        void operator()(NodeArena* region) const noexcept { arena->giveBack(region); }
    };

public:
    /// A region that nobody else uses until the lease ends, which must be before the arena's end.
    using Lease = std::unique_ptr<NodeArena, GiveBack>;

    /// From any thread. Throws std::bad_alloc.
    Lease borrowRegion();

    /// The root as an owner of the whole tree.
    std::shared_ptr<FileNode> shareRoot(FileNode* root) { return {shared_from_this(), root}; }

private:
    void giveBack(NodeArena* region) noexcept;

    UnfairLock lock_;
    std::vector<std::unique_ptr<NodeArena>> regions_; // guarded by lock_
    std::vector<NodeArena*> freeRegions_;             // likewise; has room for all
};

} // namespace tarnwell
