#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include "TarnwellCore/Platform/EntrySizes.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace tarnwell {

namespace {

constexpr std::uint32_t extentsPerCall = 250;

/// `allocated * shared / total` without overflow, rounded down.
std::int64_t scaled(std::int64_t allocated, std::uint64_t shared, std::uint64_t total) {
    __extension__ using Wide = unsigned __int128;
    return static_cast<std::int64_t>(static_cast<Wide>(static_cast<std::uint64_t>(allocated)) * shared /
                                     total);
}

} // namespace

struct SharedExtents::ExtentMap {
    // struct fiemap ends in a flexible array: its extents follow it in memory.
    alignas(
        struct fiemap) std::byte bytes[sizeof(struct fiemap) + extentsPerCall * sizeof(struct fiemap_extent)];

    struct fiemap& header() { return *reinterpret_cast<struct fiemap*>(bytes); }
    const struct fiemap_extent* extents() const {
        return reinterpret_cast<const struct fiemap_extent*>(bytes + sizeof(struct fiemap));
    }
};

SharedExtents::SharedExtents(const DirectoryCalls& calls) : calls_(calls) {}
SharedExtents::~SharedExtents() = default;

void SharedExtents::measure(int folder, const char* name, RawDirectoryEntry& entry) {
    if (!extents_) // before there is a file to close
        extents_ = std::make_unique<ExtentMap>();
    // Not blocking: should a FIFO have taken the file's place by now, opening it must not wait for a writer.
    const int file = withoutInterruption([&] {
        return calls_.openEntry(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    });
    if (file < 0)
        return;
    struct fiemap& map = extents_->header();
    std::uint64_t total = 0;
    std::uint64_t shared = 0;
    std::uint64_t start = 0;
    bool isComplete = false;
    bool isTooLarge = false;
    while (!isComplete) {
        std::memset(&map, 0, sizeof map);
        map.fm_start = start;
        map.fm_length = std::numeric_limits<std::uint64_t>::max() - start;
        map.fm_extent_count = extentsPerCall;
        if (withoutInterruption([&] { return calls_.readExtents(file, &map); }) != 0)
            break;
        const std::uint32_t count = std::min(map.fm_mapped_extents, extentsPerCall);
        isComplete = count == 0;
        for (std::uint32_t index = 0; index < count; ++index) {
            const struct fiemap_extent& extent = extents_->extents()[index];
            isTooLarge = __builtin_add_overflow(total, extent.fe_length, &total) || isTooLarge;
            if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0)
                shared += extent.fe_length;
            if ((extent.fe_flags & FIEMAP_EXTENT_LAST) != 0)
                isComplete = true;
            // A file that is being written could report an extent that does not move on.
            const std::uint64_t end = extent.fe_logical + extent.fe_length;
            if (end <= start)
                isComplete = true;
            start = end;
        }
    }
    ::close(file);
    if (isTooLarge)
        rejectSizes(entry);
    if (isTooLarge || !isComplete)
        return;
    entry.reportsPrivateSize = true;
    entry.privateSize = entry.allocatedSize - (total == 0 ? 0 : scaled(entry.allocatedSize, shared, total));
    if (shared > 0)
        entry.extFlags |= mayShareBlocksFlag;
    if (shared > 0 && shared == total)
        entry.extFlags |= sharesAllBlocksFlag;
}

} // namespace tarnwell
