#include "TarnwellCore/Scanning/NodeArena.hpp"

#include "TarnwellCore/Platform/FreshMemory.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <mutex>
#include <new>

namespace tarnwell {

namespace {

// A small tree should not claim much address space, a large one should not be cut into many pieces. Memory
// counts only once it is touched.
constexpr std::size_t firstChunkLength = std::size_t{256} << 10;
constexpr std::size_t largestChunkLength = std::size_t{64} << 20;

// What is populated at once; a multiple of the page size on every system.
constexpr std::size_t windowLength = std::size_t{64} << 10;

std::size_t wholeWindows(std::size_t bytes) {
    return (bytes + windowLength - 1) / windowLength * windowLength;
}

} // namespace

NodeArena::~NodeArena() {
    for (const Chunk& chunk : chunks_)
        ::munmap(chunk.base, chunk.length);
}

void NodeArena::addRoom(std::size_t bytes) {
    if (bytes > available_ + untouched_)
        addChunk(bytes);
    const std::size_t length = wholeWindows(bytes - available_);
    populate(next_ + available_, length);
    available_ += length;
    untouched_ -= length;
}

void NodeArena::addChunk(std::size_t atLeast) {
    const std::size_t doubled =
        chunks_.empty() ? firstChunkLength : std::min(chunks_.back().length * 2, largestChunkLength);
    const std::size_t length = wholeWindows(std::max(doubled, atLeast));
    chunks_.reserve(chunks_.size() + 1);
    void* base = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED)
        throw std::bad_alloc();
    chunks_.push_back({base, length});
    next_ = static_cast<std::byte*>(base);
    available_ = 0;
    untouched_ = length;
}

std::span<FileNode*> NodeArena::makeChildArray(std::size_t count) {
    return {static_cast<FileNode**>(allocate(count * sizeof(FileNode*))), count};
}

TreeArena::Lease TreeArena::borrowRegion() {
    const std::lock_guard guard(lock_);
    if (freeRegions_.empty()) {
        freeRegions_.reserve(regions_.size() + 1); // giving back must not fail
        regions_.push_back(std::make_unique<NodeArena>());
        freeRegions_.push_back(regions_.back().get());
    }
    NodeArena* region = freeRegions_.back();
    freeRegions_.pop_back();
    return {region, {this}};
}

void TreeArena::giveBack(NodeArena* region) noexcept {
    const std::lock_guard guard(lock_);
    freeRegions_.push_back(region);
}

} // namespace tarnwell
