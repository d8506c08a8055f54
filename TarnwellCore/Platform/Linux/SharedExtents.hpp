#pragma once

// How much of a file's space other files share, on file systems that can share extents, and where that lies.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/HeldSpace.hpp"
#include "TarnwellCore/Platform/Linux/BtrfsExtents.hpp"
#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace tarnwell {

class ExtentMap;

/// Confined to one thread.
class SharedExtents {
public:
    explicit SharedExtents(const DirectoryCalls& calls);
    ~SharedExtents();

    /// Fills the private sizes and the sharing bits of the regular files with blocks among some entries of an
    /// open folder, whose names end in a NUL. One open and one call for every few hundred extents of a file;
    /// on btrfs, for those who may, two calls for many files, and that only for those of which they leave it
    /// open. Leaves an entry as it is when its extents cannot be read; when their lengths fit no 64 bits, it
    /// could not be read itself. With `held`, one for each entry, that is filled too, and becomes the entry's
    /// where there is something in it; of the files that are opened on btrfs that may take one call more.
    void measure(int folder, std::int32_t device, bool isBtrfs, std::span<RawDirectoryEntry> entries,
                 HeldSpace* held);
    /// One such file, by itself.
    void measure(int folder, const char* name, bool isBtrfs, RawDirectoryEntry& entry, HeldSpace* held);

    /// The private size and the bits alone, of an open file, with flags of FS_IOC_FIEMAP.
    static void measure(int file, ExtentMap& extents, std::uint32_t flags, RawDirectoryEntry& entry);

private:
    struct Piece;
    struct Sums;
    bool readTogether(int folder, std::int32_t device, std::span<const RawDirectoryEntry> entries);
    void measureKnown(int folder, const BtrfsExtents::File& known, RawDirectoryEntry& entry, HeldSpace* held);
    void ask(int folder, const char* name, bool isBtrfs, RawDirectoryEntry& entry, HeldSpace* held,
             const BtrfsExtents::File* known);
    void keep(int file, bool isBtrfs, const Sums& sums, RawDirectoryEntry& entry, HeldSpace& held,
              const BtrfsExtents::File* known);
    bool readWholeExtents(int file, const RawDirectoryEntry& entry, const BtrfsExtents::File* known);
    bool keepWholeExtents(HeldSpace& held);

    const DirectoryCalls& calls_;
    std::unique_ptr<ExtentMap> extents_;
    std::vector<Piece> sharedPieces_; // of the file at hand, in its order
    BtrfsExtents btrfs_;
    std::vector<std::uint64_t> inodes_;
    std::vector<BtrfsExtents::Extent> wholeExtents_;
    std::vector<SharedExtent> ownExtents_;
};

} // namespace tarnwell
