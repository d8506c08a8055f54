#include "TarnwellCore/Platform/Linux/BtrfsSearch.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <linux/btrfs.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <limits>

namespace tarnwell {

bool BtrfsSearch::find(int file, const Range& range) {
    left_ = 0;
    offset_ = 0;
    if (isRefused_)
        return false;
    if (!arguments_)
        arguments_ =
            std::make_unique_for_overwrite<std::byte[]>(sizeof(btrfs_ioctl_search_args_v2) + bufferSize);
    auto& arguments = *reinterpret_cast<btrfs_ioctl_search_args_v2*>(arguments_.get());
    arguments = {};
    arguments.buf_size = bufferSize;
    btrfs_ioctl_search_key& key = arguments.key;
    key.tree_id = range.tree;
    key.min_objectid = range.first.object;
    key.min_type = range.first.type;
    key.min_offset = range.first.offset;
    key.max_objectid = range.last.object;
    key.max_type = range.last.type;
    key.max_offset = range.last.offset;
    key.min_transid = range.oldestGeneration;
    key.max_transid = std::numeric_limits<std::uint64_t>::max();
    key.nr_items = std::numeric_limits<std::uint32_t>::max();
    if (withoutInterruption([&] { return ::ioctl(file, BTRFS_IOC_TREE_SEARCH_V2, &arguments); }) != 0) {
        isRefused_ = errno == EPERM || errno == ENOTTY;
        return false;
    }
    left_ = key.nr_items;
    return true;
}

bool BtrfsSearch::take(Item& item) {
    const std::byte* const items = arguments_.get() + sizeof(btrfs_ioctl_search_args_v2);
    btrfs_ioctl_search_header header;
    if (bufferSize - offset_ < sizeof header)
        return false;
    std::memcpy(&header, items + offset_, sizeof header);
    offset_ += sizeof header;
    if (header.len > bufferSize - offset_)
        return false;
    item = {.key = {header.objectid, static_cast<std::uint8_t>(header.type), header.offset},
            .generation = header.transid,
            .bytes = {items + offset_, header.len}};
    offset_ += header.len;
    --left_;
    return true;
}

bool BtrfsSearch::hadNoRoomFor(std::size_t length) const {
    return bufferSize - offset_ < sizeof(btrfs_ioctl_search_header) + length;
}

BtrfsKey BtrfsSearch::following(const BtrfsKey& key) {
    if (key.offset != std::numeric_limits<std::uint64_t>::max())
        return {key.object, key.type, key.offset + 1};
    if (key.type != std::numeric_limits<std::uint8_t>::max())
        return {key.object, static_cast<std::uint8_t>(key.type + 1), 0};
    return {key.object + 1, 0, 0};
}

} // namespace tarnwell
