#pragma once

// How much of a file's space other files share, on file systems that can share extents.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstdint>
#include <memory>

namespace tarnwell {

class ExtentMap;

/// Confined to one thread.
class SharedExtents {
public:
    explicit SharedExtents(const DirectoryCalls& calls);
    ~SharedExtents();

    /// Fills the private size and the sharing bits of a regular file with blocks: one open, and one call
    /// for every few hundred extents. Leaves the entry as it is when its extents cannot be read;
    /// when their lengths fit no 64 bits, it could not be read itself.
    void measure(int folder, const char* name, RawDirectoryEntry& entry);

    /// The same of an open file, with flags of FS_IOC_FIEMAP.
    static void measure(int file, ExtentMap& extents, std::uint32_t flags, RawDirectoryEntry& entry);

private:
    const DirectoryCalls& calls_;
    std::unique_ptr<ExtentMap> extents_;
};

} // namespace tarnwell
