#include "TarnwellCore/Platform/FreshMemory.hpp"

#include <sys/mman.h>

namespace tarnwell {

void populate(void* pages, std::size_t length) {
    ::madvise(pages, length, MADV_POPULATE_WRITE);
}

} // namespace tarnwell
