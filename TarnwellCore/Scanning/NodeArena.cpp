#include "TarnwellCore/Scanning/NodeArena.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <new>

namespace tarnwell {

namespace {

// A small tree should not claim much address space, a large one should not be cut into many pieces. Memory
// counts only once it is touched.
constexpr std::size_t firstChunkLength = std::size_t{256} << 10;
constexpr std::size_t largestChunkLength = std::size_t{64} << 20;

} // namespace

NodeArena::~NodeArena() {
    for (const Chunk& chunk : chunks_)
        ::munmap(chunk.base, chunk.length);
}

void NodeArena::addChunk(std::size_t atLeast) {
    const std::size_t doubled =
        chunks_.empty() ? firstChunkLength : std::min(chunks_.back().length * 2, largestChunkLength);
    const std::size_t page = std::size_t{1} << 16; // a multiple of the page size on every system
    const std::size_t length = (std::max(doubled, atLeast) + page - 1) & ~(page - 1);
    chunks_.reserve(chunks_.size() + 1);
    void* base = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED)
        throw std::bad_alloc();
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
