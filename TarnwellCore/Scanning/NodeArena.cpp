#include "TarnwellCore/Scanning/NodeArena.hpp"

#include "TarnwellCore/Platform/PageMemory.hpp"

#include <algorithm>

namespace tarnwell {

namespace {

// A small tree should not claim much memory, a large one should not be cut into many pieces. From the second
// chunk on, chunks consist of large pages.
constexpr std::size_t firstChunkLength = std::size_t{256} << 10;
constexpr std::size_t largestChunkLength = std::size_t{64} << 20;

std::size_t roundedUp(std::size_t length, std::size_t multiple) {
    return (length + multiple - 1) / multiple * multiple;
}

} // namespace

NodeArena::~NodeArena() {
    for (const Chunk& chunk : chunks_)
        unmapPages(chunk.base, chunk.length);
}

void NodeArena::addChunk(std::size_t atLeast) {
    const bool isSmall = chunks_.empty() && atLeast <= firstChunkLength;
    const std::size_t doubled = chunks_.empty() ? 0 : std::min(chunks_.back().length * 2, largestChunkLength);
    const std::size_t length =
        isSmall ? firstChunkLength : roundedUp(std::max(doubled, atLeast), largePageSize);
    chunks_.reserve(chunks_.size() + 1);
    void* base = mapPages(length);
    chunks_.push_back({base, length});
    next_ = static_cast<std::byte*>(base);
    available_ = length;
}

std::span<FileNode*> NodeArena::makeChildArray(std::size_t count) {
    return {static_cast<FileNode**>(allocate(count * sizeof(FileNode*))), count};
}

TreeArena::TreeArena(std::size_t regionCount) {
    for (std::size_t index = 0; index < regionCount; ++index)
        regions_.push_back(std::make_unique<NodeArena>());
}

} // namespace tarnwell
