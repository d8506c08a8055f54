#pragma once

// The extents of a file, as the kernel reports them (FS_IOC_FIEMAP).

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace tarnwell {

/// Room for the answer to one call. Large; confined to one thread.
class ExtentMap {
public:
    /// Calls `body(const struct fiemap_extent&)` for each extent in the order of the file. False when not all
    /// of them can be told. With FIEMAP_FLAG_SYNC in `flags`, what is not written yet gets its place first.
    template <class Body>
    bool forEach(int file, std::uint32_t flags, Body&& body) {
        return forEach([](int of, void* map) { return ::ioctl(of, FS_IOC_FIEMAP, map); }, file, flags, body);
    }

    /// The same by another call.
    template <class Body>
    bool forEach(int (*readExtents)(int file, void* map), int file, std::uint32_t flags, Body&& body) {
        std::uint64_t start = 0;
        for (;;) {
            std::memset(bytes_, 0, sizeof(struct fiemap));
            auto& map = *reinterpret_cast<struct fiemap*>(bytes_);
            map.fm_start = start;
            map.fm_length = std::numeric_limits<std::uint64_t>::max() - start;
            map.fm_flags = flags;
            map.fm_extent_count = extentsPerCall;
            if (withoutInterruption([&] { return readExtents(file, &map); }) != 0)
                return false;
            const std::uint32_t count = std::min(map.fm_mapped_extents, extentsPerCall);
            bool isComplete = count == 0;
            for (std::uint32_t index = 0; index < count; ++index) {
                const auto& extent =
                    reinterpret_cast<const struct fiemap_extent*>(bytes_ + sizeof(struct fiemap))[index];
                body(extent);
                // A file that is being written could report an extent that does not move on.
                const std::uint64_t end = extent.fe_logical + extent.fe_length;
                if ((extent.fe_flags & FIEMAP_EXTENT_LAST) != 0 || end <= start)
                    isComplete = true;
                start = end;
            }
            if (isComplete)
                return true;
        }
    }

private:
    static constexpr std::uint32_t extentsPerCall = 250;
    // struct fiemap ends in a flexible array: its extents follow it in memory.
    alignas(struct fiemap)
        std::byte bytes_[sizeof(struct fiemap) + extentsPerCall * sizeof(struct fiemap_extent)];
};

} // namespace tarnwell
