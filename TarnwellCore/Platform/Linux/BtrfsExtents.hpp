#pragma once

// The extents of a file as btrfs keeps them: whole, with what of them lies on the disk. FIEMAP shows only the
// parts that a file uses; an extent goes free as a whole, and only when nothing uses any part of it.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tarnwell {

/// Confined to one thread.
class BtrfsExtents {
public:
    struct Extent {
        std::uint64_t logical; // where the file uses it, and how many bytes of the file
        std::uint64_t length;
        std::uint64_t start; // where it lies, and how many bytes
        std::uint64_t lengthOnDisk;
    };

    /// The extents of an open regular file in ascending order of `logical`, without holes; false when the
    /// kernel does not tell, which it does only with CAP_SYS_ADMIN. Format: `struct btrfs_file_extent_item`
    /// of <linux/btrfs_tree.h>, found by BTRFS_IOC_TREE_SEARCH_V2.
    bool read(int file, std::uint64_t inode, std::vector<Extent>& extents);

    /// The same number for all subvolumes of one file system.
    static bool fileSystemNumber(int file, std::uint32_t& number);

private:
    static constexpr std::size_t bufferSize = 16384;

    bool isRefused_ = false; // for ever: privileges do not come back
    std::unique_ptr<std::byte[]> arguments_;
};

} // namespace tarnwell
