#include "TarnwellCore/Platform/BlockLayout.hpp"

#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/Linux/ExtentMap.hpp"
#include "TarnwellCore/Platform/Linux/FileSystemKinds.hpp"
#include "TarnwellCore/Platform/SHA256.hpp"

#include <linux/btrfs.h>
#include <sys/stat.h>

#include <memory>
#include <span>

namespace tarnwell {

namespace {

/// Extents that follow each other in the file and on the disk as one: where a file was split, and whether its
/// clone was split there too, says nothing about its blocks.
class ExtentDigest {
public:
    void add(const struct fiemap_extent& extent) {
        if (extent.fe_logical == end_[0] && extent.fe_physical == end_[1]) {
            end_[0] += extent.fe_length;
            end_[1] += extent.fe_length;
            return;
        }
        flush();
        start_[0] = extent.fe_logical;
        start_[1] = extent.fe_physical;
        end_[0] = extent.fe_logical + extent.fe_length;
        end_[1] = extent.fe_physical + extent.fe_length;
    }

    BlockLayout finish() {
        flush();
        const SHA256Digest digest = hash_.finish();
        BlockLayout layout;
        static_assert(sizeof layout.words == sizeof digest);
        std::memcpy(layout.words.data(), digest.data(), sizeof digest);
        return layout;
    }

    template <class Value>
    void mix(const Value& value) {
        hash_.update(std::as_bytes(std::span(&value, 1)));
    }

private:
    void flush() {
        mix(start_);
        mix(end_);
    }

    SHA256 hash_;
    std::array<std::uint64_t, 2> start_{}; // in the file, on the disk
    std::array<std::uint64_t, 2> end_{};
};

/// A subvolume has a device number of its own, but its clones may lie in others of the same file system.
void mixFileSystem(int file, std::int32_t device, ExtentDigest& digest) {
    struct btrfs_ioctl_fs_info_args info = {};
    if (::ioctl(file, BTRFS_IOC_FS_INFO, &info) == 0)
        digest.mix(info.fsid);
    else
        digest.mix(device);
}

} // namespace

std::optional<BlockLayout> layoutOfSharedBlocks(int file) {
    thread_local FileSystemKinds kinds;
    thread_local std::unique_ptr<ExtentMap> extents;
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return std::nullopt;
    const std::int32_t device = entryFromStatus(status).deviceID;
    if (!kinds.of(file, device).sharesExtents)
        return std::nullopt;
    if (!extents)
        extents = std::make_unique<ExtentMap>();
    constexpr std::uint32_t withoutPlace =
        FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC | FIEMAP_EXTENT_DATA_INLINE;
    ExtentDigest digest;
    bool isShared = false;
    bool isOwn = false;
    const bool isComplete = extents->forEach(file, 0, [&](const struct fiemap_extent& extent) {
        if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) == 0 || (extent.fe_flags & withoutPlace) != 0)
            isOwn = true;
        isShared = true;
        digest.add(extent);
    });
    if (!isComplete || isOwn || !isShared)
        return std::nullopt;
    mixFileSystem(file, device, digest);
    return digest.finish();
}

} // namespace tarnwell
