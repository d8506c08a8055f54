#include "TarnwellCore/Platform/FreedMemory.hpp"

#include <malloc.h>

namespace tarnwell {

void giveLargeBlocksBack() {
#ifdef __GLIBC__
    // Unless it is told a size, the C library takes each large block that is freed for a sign that the next
    // one of its size should stay in a heap, of which every thread has its own.
    ::mallopt(M_MMAP_THRESHOLD, 512 << 10);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 20);
#endif
}

} // namespace tarnwell
