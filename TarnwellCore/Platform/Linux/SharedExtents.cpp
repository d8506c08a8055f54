#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include "TarnwellCore/Platform/EntrySizes.hpp"
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
    Sums sums;
    const bool isComplete = sums.add(calls_.readExtents, file, 0, *extents_);
    ::close(file);
    sums.store(isComplete, entry);
}

void SharedExtents::measure(int file, ExtentMap& extents, std::uint32_t flags, RawDirectoryEntry& entry) {
    Sums sums;
    sums.store(sums.add(DirectoryCalls::live().readExtents, file, flags, extents), entry);
}

} // namespace tarnwell
