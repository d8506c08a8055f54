#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/Linux/ExtentMap.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace tarnwell {

namespace {

/// `allocated * shared / total` without overflow, rounded down.
std::int64_t scaled(std::int64_t allocated, std::uint64_t shared, std::uint64_t total) {
    __extension__ using Wide = unsigned __int128;
    return static_cast<std::int64_t>(static_cast<Wide>(static_cast<std::uint64_t>(allocated)) * shared /
                                     total);
}

} // namespace

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
    measure(file, *extents_, 0, entry);
    ::close(file);
}

void SharedExtents::measure(int file, ExtentMap& extents, std::uint32_t flags, RawDirectoryEntry& entry) {
    std::uint64_t total = 0;
    std::uint64_t shared = 0;
    const bool isComplete = extents.forEach(file, flags, [&](const struct fiemap_extent& extent) {
        total += extent.fe_length;
        if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0)
            shared += extent.fe_length;
    });
    if (!isComplete)
        return;
    entry.reportsPrivateSize = true;
    entry.privateSize = entry.allocatedSize - (total == 0 ? 0 : scaled(entry.allocatedSize, shared, total));
    if (shared > 0)
        entry.extFlags |= mayShareBlocksFlag;
    if (shared > 0 && shared == total)
        entry.extFlags |= sharesAllBlocksFlag;
}

} // namespace tarnwell
