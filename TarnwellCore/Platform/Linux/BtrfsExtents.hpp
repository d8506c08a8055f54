#pragma once

// The extents of files as btrfs keeps them: whole, with what of them lies on the disk, and who shares them.
// FIEMAP shows only the parts that a file uses; an extent goes free as a whole, and only when nothing uses
// any part of it. And it is asked file by file, while the trees that these are read from hold many files side
// by side.

#include "TarnwellCore/Platform/Linux/BtrfsSearch.hpp"
#include "TarnwellCore/Platform/Linux/BtrfsSubvolumes.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarnwell {

/// Needs CAP_SYS_ADMIN. Confined to one thread.
class BtrfsExtents {
public:
    struct Extent {
        std::uint64_t logical; // where the file uses it, and how many bytes of the file
        std::uint64_t length;
        std::uint64_t start; // where it lies, and how many bytes
        std::uint64_t lengthOnDisk;
        bool isShared = false;
    };

    /// The extents of an open regular file in ascending order of `logical`, without holes, who shares them
    /// left open; false when the kernel does not tell.
    bool read(int file, std::uint64_t inode, std::vector<Extent>& extents);

    struct File {
        std::uint64_t inode = 0;
        /// Bytes of the file that have blocks.
        std::uint64_t length = 0;
        bool isInline = false;
        bool isEncoded = false;
        bool isPreallocated = false;
        /// Otherwise the kernel must be asked which of the extents are shared.
        bool knowsShared = false;
        std::size_t firstExtent = 0;
        std::size_t extentCount = 0;
    };

    /// Looks at many regular files of a folder's subvolume together; false when nothing is known of them, as
    /// the kernel does not tell. `inodes` in ascending order, each once; the nearer to each other, the fewer
    /// calls it takes.
    bool readTogether(int folder, std::int32_t device, std::span<const std::uint64_t> inodes);
    /// What was found, until the next reading; null for a file of which not all was understood.
    const File* file(std::uint64_t inode) const;
    std::span<const Extent> extents(const File& file) const {
        return std::span(extents_).subspan(file.firstExtent, file.extentCount);
    }

    /// The same number for all subvolumes of one file system.
    std::uint32_t fileSystemNumber(int file, std::int32_t device) {
        return subvolumes_.fileSystemNumber(file, device);
    }

private:
    /// Who uses an extent.
    struct Users {
        enum class Kind : std::uint8_t {
            unknown,
            one,     // in one place
            oneFile, // in several places
            several, // files
        };
        std::uint64_t start; // of the extent, on the disk
        std::uint64_t end;
        Kind kind = Kind::unknown;
        bool isRepeated = false; // among the files that are read together
        /// The file, where there is one and it is named.
        std::uint64_t tree = 0;
        std::uint64_t object = 0;
    };
    class Collection;

    void readItems(int folder, std::span<const std::uint64_t> inodes);
    bool readUsers(int folder);
    void judge(File& file, const BtrfsSubvolumes::Subvolume& subvolume, bool isSettled);
    const Users* users(std::uint64_t start) const;
    static void fill(Users& users, const BtrfsSearch::Item& item);

    // Of all files that are read together: 2 MiB.
    static constexpr std::size_t largestExtentCount = std::size_t{1} << 15;

    BtrfsSearch search_;
    BtrfsSubvolumes subvolumes_;
    std::vector<File> files_; // in ascending order of their inodes
    std::vector<Extent> extents_;
    std::vector<std::uint64_t> generations_; // in which the leaf that names each extent was written
    std::vector<Users> users_;               // in ascending order
};

} // namespace tarnwell
