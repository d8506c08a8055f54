#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include "TarnwellCore/Platform/EntrySizes.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/Linux/ExtentMap.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace tarnwell {

namespace {

/// `allocated * shared / total` without overflow, rounded down.
std::int64_t scaled(std::int64_t allocated, std::uint64_t shared, std::uint64_t total) {
    __extension__ using Wide = unsigned __int128;
    return static_cast<std::int64_t>(static_cast<Wide>(static_cast<std::uint64_t>(allocated)) * shared /
                                     total);
}

} // namespace

/// A part of the file that others share, as FIEMAP shows it.
struct SharedExtents::Piece {
    std::uint64_t logical;
    std::uint64_t start;
    std::uint64_t length;
};

/// Over all extents of a file. Bytes.
struct SharedExtents::Sums {
    std::uint64_t total = 0;
    std::uint64_t shared = 0;
    bool isTooLarge = false;
    bool isEncoded = false;
    bool isInline = false;
    bool hasNoPlace = false; // yet: written, but not to the disk

    void add(const struct fiemap_extent& extent) {
        isTooLarge = __builtin_add_overflow(total, extent.fe_length, &total) || isTooLarge;
        isEncoded |= (extent.fe_flags & FIEMAP_EXTENT_ENCODED) != 0;
        isInline |= (extent.fe_flags & FIEMAP_EXTENT_DATA_INLINE) != 0;
        hasNoPlace |= (extent.fe_flags & FIEMAP_EXTENT_UNKNOWN) != 0; // of delayed allocation, too
        shared += isShared(extent) ? extent.fe_length : 0;
    }
    static bool isShared(const struct fiemap_extent& extent) {
        return (extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0;
    }

    /// False for an entry that could not be read.
    bool store(RawDirectoryEntry& entry) const {
        if (isTooLarge) {
            rejectSizes(entry);
            return false;
        }
        entry.reportsPrivateSize = true;
        entry.privateSize =
            entry.allocatedSize - (total == 0 ? 0 : scaled(entry.allocatedSize, shared, total));
        if (shared > 0)
            entry.extFlags |= mayShareBlocksFlag;
        if (shared > 0 && shared == total)
            entry.extFlags |= sharesAllBlocksFlag;
        return true;
    }
};

SharedExtents::SharedExtents(const DirectoryCalls& calls) : calls_(calls) {}
SharedExtents::~SharedExtents() = default;

std::uint32_t SharedExtents::fileSystemNumber(int file, bool isBtrfs, std::int32_t deviceID) {
    const auto [known, isNew] = numbers_.try_emplace(deviceID, static_cast<std::uint32_t>(deviceID));
    if (isNew && isBtrfs)
        BtrfsExtents::fileSystemNumber(file, known->second);
    return known->second;
}

/// False when the kernel does not show them, or something else than the pieces belong to, or lengths that fit
/// no 64 bits.
bool SharedExtents::keepWholeExtents(int file, const RawDirectoryEntry& entry, HeldSpace& held) {
    if (!btrfs_.read(file, entry.fileID, wholeExtents_))
        return false;
    std::uint64_t exclusive = 0;
    auto piece = sharedPieces_.begin();
    // A file may use several parts of one extent; it lies on the disk once.
    std::vector<SharedExtent>& own = ownExtents_;
    own.clear();
    for (const BtrfsExtents::Extent& extent : wholeExtents_) {
        while (piece != sharedPieces_.end() && piece->logical + piece->length <= extent.logical)
            ++piece;
        const bool isShared = piece != sharedPieces_.end() && piece->logical < extent.logical + extent.length;
        (isShared ? held.extents : own).push_back({extent.start, extent.lengthOnDisk});
    }
    const auto removeRepeated = [](std::vector<SharedExtent>& extents) {
        std::ranges::sort(extents, {}, &SharedExtent::start);
        const auto repeated = std::ranges::unique(extents);
        extents.erase(repeated.begin(), repeated.end());
    };
    removeRepeated(held.extents);
    removeRepeated(own);
    for (const SharedExtent& extent : own)
        if (__builtin_add_overflow(exclusive, extent.length, &exclusive))
            return false;
    if (!std::in_range<std::int64_t>(exclusive))
        return false;
    held.exclusive = static_cast<std::int64_t>(exclusive);
    held.traits |= HeldSpace::wholeExtents | HeldSpace::knowsExclusive;
    return true;
}

void SharedExtents::keep(int file, bool isBtrfs, const Sums& sums, RawDirectoryEntry& entry,
                         HeldSpace& held) {
    held.traits = 0;
    held.extents.clear();
    if (sums.isInline) {
        held.traits = HeldSpace::inlineData;
    } else if (isBtrfs && !sums.hasNoPlace && keepWholeExtents(file, entry, held)) {
        if (held.extents.empty() && held.exclusive == entry.allocatedSize)
            return; // as everywhere else
    } else {
        held.extents.clear(); // a failure may have left some
        held.traits = sums.isEncoded ? HeldSpace::encoded : isBtrfs ? 0 : HeldSpace::wholeExtents;
        // The places of encoded extents are not as long as FIEMAP says.
        if (!sums.isEncoded)
            for (const Piece& piece : sharedPieces_)
                held.extents.push_back({piece.start, piece.length});
        if (held.extents.empty() && !sums.isEncoded)
            return;
    }
    held.fileSystem = fileSystemNumber(file, isBtrfs, entry.deviceID);
    entry.held = &held;
}

void SharedExtents::measure(int folder, const char* name, bool isBtrfs, RawDirectoryEntry& entry,
                            HeldSpace* held) {
    if (!extents_) // before there is a file to close
        extents_ = std::make_unique<ExtentMap>();
    // Not blocking: should a FIFO have taken the file's place by now, opening it must not wait for a writer.
    const int file = withoutInterruption([&] {
        return calls_.openEntry(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    });
    if (file < 0)
        return;
    const struct Closing { // memory may run out
        int file;
        ~Closing() { ::close(file); }
    } closing{file};
    Sums sums;
    sharedPieces_.clear();
    const bool isComplete =
        extents_->forEach(calls_.readExtents, file, 0, [&](const struct fiemap_extent& extent) {
            sums.add(extent);
            if (held != nullptr && Sums::isShared(extent))
                sharedPieces_.push_back({extent.fe_logical, extent.fe_physical, extent.fe_length});
        });
    // Lengths that fit no 64 bits come to no end, either.
    if ((isComplete || sums.isTooLarge) && sums.store(entry) && held != nullptr)
        keep(file, isBtrfs, sums, entry, *held);
}

void SharedExtents::measure(int file, ExtentMap& extents, std::uint32_t flags, RawDirectoryEntry& entry) {
    Sums sums;
    if (extents.forEach(file, flags, [&](const struct fiemap_extent& extent) { sums.add(extent); }))
        sums.store(entry);
}

} // namespace tarnwell
