#include "TarnwellCore/Platform/Linux/BtrfsExtents.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <endian.h>
#include <linux/btrfs.h>
#include <linux/btrfs_tree.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace tarnwell {

bool BtrfsExtents::read(int file, std::uint64_t inode, std::vector<Extent>& extents) {
    extents.clear();
    if (isRefused_)
        return false;
    if (!arguments_)
        arguments_ =
            std::make_unique_for_overwrite<std::byte[]>(sizeof(btrfs_ioctl_search_args_v2) + bufferSize);
    auto& arguments = *reinterpret_cast<btrfs_ioctl_search_args_v2*>(arguments_.get());
    const std::byte* const items = arguments_.get() + sizeof arguments;
    std::uint64_t next = 0;
    for (;;) {
        arguments = {};
        arguments.buf_size = bufferSize;
        btrfs_ioctl_search_key& key = arguments.key;
        key.min_objectid = key.max_objectid = inode;
        key.min_type = key.max_type = BTRFS_EXTENT_DATA_KEY;
        key.min_offset = next;
        key.max_offset = key.max_transid = std::numeric_limits<std::uint64_t>::max();
        key.nr_items = std::numeric_limits<std::uint32_t>::max();
        if (withoutInterruption([&] { return ::ioctl(file, BTRFS_IOC_TREE_SEARCH_V2, &arguments); }) != 0) {
            isRefused_ = errno == EPERM || errno == ENOTTY;
            return false;
        }
        if (key.nr_items == 0)
            return true;
        std::size_t offset = 0;
        for (std::uint32_t index = 0; index < key.nr_items; ++index) {
            btrfs_ioctl_search_header header;
            if (offset + sizeof header > bufferSize)
                return false;
            std::memcpy(&header, items + offset, sizeof header);
            offset += sizeof header;
            if (header.len > bufferSize - offset)
                return false;
            btrfs_file_extent_item item = {};
            std::memcpy(&item, items + offset, std::min<std::size_t>(header.len, sizeof item));
            offset += header.len;
            const bool hasPlace = item.type != BTRFS_FILE_EXTENT_INLINE && header.len >= sizeof item;
            if (hasPlace && item.disk_bytenr != 0)
                extents.push_back({.logical = header.offset,
                                   .length = le64toh(item.num_bytes),
                                   .start = le64toh(item.disk_bytenr),
                                   .lengthOnDisk = le64toh(item.disk_num_bytes)});
            if (header.offset == std::numeric_limits<std::uint64_t>::max())
                return true;
            next = header.offset + 1;
        }
        // Where another item would have had room there is none. The large ones, with the data inside, stand
        // alone.
        if (bufferSize - offset >= sizeof(btrfs_ioctl_search_header) + sizeof(btrfs_file_extent_item))
            return true;
    }
}

bool BtrfsExtents::fileSystemNumber(int file, std::uint32_t& number) {
    btrfs_ioctl_fs_info_args information = {};
    if (withoutInterruption([&] { return ::ioctl(file, BTRFS_IOC_FS_INFO, &information); }) != 0)
        return false;
    // A UUID's first bytes are as good as random.
    std::memcpy(&number, information.fsid, sizeof number);
    return true;
}

} // namespace tarnwell
