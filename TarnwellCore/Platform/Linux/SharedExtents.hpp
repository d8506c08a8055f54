#pragma once

// How much of a file's space other files share, on file systems that can share extents, and where that lies.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/HeldSpace.hpp"
#include "TarnwellCore/Platform/Linux/BtrfsExtents.hpp"
#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace tarnwell {

class ExtentMap;

/// Confined to one thread.
class SharedExtents {
public:
    explicit SharedExtents(const DirectoryCalls& calls);
    ~SharedExtents();

    /// Fills the private size and the sharing bits of a regular file with blocks: one open, and one call
    /// for every few hundred extents. Leaves the entry as it is when its extents cannot be read; when their
    /// lengths fit no 64 bits, it could not be read itself. With `held`, that is filled too, and becomes the
    /// entry's where there is something in it; on btrfs that takes one call more, for those who may.
    void measure(int folder, const char* name, bool isBtrfs, RawDirectoryEntry& entry, HeldSpace* held);

    /// The private size and the bits alone, of an open file, with flags of FS_IOC_FIEMAP.
    static void measure(int file, ExtentMap& extents, std::uint32_t flags, RawDirectoryEntry& entry);

private:
    struct Piece;
    struct Sums;
    void keep(int file, bool isBtrfs, const Sums& sums, RawDirectoryEntry& entry, HeldSpace& held);
    bool keepWholeExtents(int file, const RawDirectoryEntry& entry, HeldSpace& held);
    std::uint32_t fileSystemNumber(int file, bool isBtrfs, std::int32_t deviceID);

    const DirectoryCalls& calls_;
    std::unique_ptr<ExtentMap> extents_;
    std::vector<Piece> sharedPieces_; // of the file at hand, in its order
    BtrfsExtents btrfs_;
    std::vector<BtrfsExtents::Extent> wholeExtents_;
    std::vector<SharedExtent> ownExtents_;
    std::unordered_map<std::int32_t, std::uint32_t> numbers_; // by device
};

} // namespace tarnwell
