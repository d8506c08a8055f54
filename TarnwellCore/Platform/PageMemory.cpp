#include "TarnwellCore/Platform/PageMemory.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace tarnwell {

namespace {

std::byte* map(std::size_t length) {
    void* pages = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        throw std::bad_alloc();
    return static_cast<std::byte*>(pages);
}

#ifdef MADV_HUGEPAGE
/// Large pages lie at multiples of their size: the surplus on both sides is given back.
void* mapAligned(std::size_t length) {
    std::byte* pages = map(length + largePageSize);
    const std::size_t offset = reinterpret_cast<std::uintptr_t>(pages) % largePageSize;
    const std::size_t before = offset == 0 ? 0 : largePageSize - offset;
    if (before > 0)
        unmapPages(pages, before);
    unmapPages(pages + before + length, largePageSize - before);
    ::madvise(pages + before, length, MADV_HUGEPAGE); // where it is refused, small pages do
    return pages + before;
}
#endif

} // namespace

void* mapPages(std::size_t length) {
#ifdef MADV_HUGEPAGE
    if (length % largePageSize == 0)
        return mapAligned(length);
#endif
    return map(length);
}

void unmapPages(void* pages, std::size_t length) noexcept {
    ::munmap(pages, length);
}

} // namespace tarnwell
