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

bool hasExtents(const RawDirectoryEntry& entry) {
    return entry.objectType == VnodeType::regular && entry.allocatedSize > 0;
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

/// The extents of the file at hand, whole, and which of them the pieces belong to. False when the kernel does
/// not show them.
bool SharedExtents::readWholeExtents(int file, const RawDirectoryEntry& entry,
                                     const BtrfsExtents::File* known) {
    if (known != nullptr) {
        const auto extents = btrfs_.extents(*known);
        wholeExtents_.assign(extents.begin(), extents.end());
    } else if (!btrfs_.read(file, entry.fileID, wholeExtents_)) {
        return false;
    }
    if (known != nullptr && known->knowsShared)
        return true;
    auto piece = sharedPieces_.begin();
    for (BtrfsExtents::Extent& extent : wholeExtents_) {
        while (piece != sharedPieces_.end() && piece->logical + piece->length <= extent.logical)
            ++piece;
        extent.isShared = piece != sharedPieces_.end() && piece->logical < extent.logical + extent.length;
    }
    return true;
}

/// False when they are something else than the file's, or of lengths that fit no 64 bits.
bool SharedExtents::keepWholeExtents(HeldSpace& held) {
    std::uint64_t exclusive = 0;
    // A file may use several parts of one extent; it lies on the disk once.
    std::vector<SharedExtent>& own = ownExtents_;
    own.clear();
    for (const BtrfsExtents::Extent& extent : wholeExtents_)
        (extent.isShared ? held.extents : own).push_back({extent.start, extent.lengthOnDisk});
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

void SharedExtents::keep(int file, bool isBtrfs, const Sums& sums, RawDirectoryEntry& entry, HeldSpace& held,
                         const BtrfsExtents::File* known) {
    held.traits = 0;
    held.extents.clear();
    if (sums.isInline) {
        held.traits = HeldSpace::inlineData;
    } else if (isBtrfs && !sums.hasNoPlace && readWholeExtents(file, entry, known) &&
               keepWholeExtents(held)) {
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
    held.fileSystem =
        isBtrfs ? btrfs_.fileSystemNumber(file, entry.deviceID) : static_cast<std::uint32_t>(entry.deviceID);
    entry.held = &held;
}

/// False when nothing was found.
bool SharedExtents::readTogether(int folder, std::int32_t device,
                                 std::span<const RawDirectoryEntry> entries) {
    inodes_.clear();
    for (const RawDirectoryEntry& entry : entries)
        // What is mounted on a file lies elsewhere.
        if (hasExtents(entry) && entry.deviceID == device)
            inodes_.push_back(entry.fileID);
    std::ranges::sort(inodes_);
    const auto repeated = std::ranges::unique(inodes_);
    inodes_.erase(repeated.begin(), repeated.end());
    return btrfs_.readTogether(folder, device, inodes_);
}

/// An entry of which all is known.
void SharedExtents::measureKnown(int folder, const BtrfsExtents::File& known, RawDirectoryEntry& entry,
                                 HeldSpace* held) {
    Sums sums;
    sums.isInline = known.isInline;
    sums.isEncoded = known.isEncoded;
    sums.total = known.length;
    for (const BtrfsExtents::Extent& extent : btrfs_.extents(known))
        if (extent.isShared)
            sums.shared += extent.length; // a part of `total`
    sharedPieces_.clear();
    if (sums.store(entry) && held != nullptr)
        keep(folder, true, sums, entry, *held, &known);
}

void SharedExtents::measure(int folder, std::int32_t device, bool isBtrfs,
                            std::span<RawDirectoryEntry> entries, HeldSpace* held) {
    const bool isTogether = isBtrfs && readTogether(folder, device, entries);
    for (RawDirectoryEntry& entry : entries) {
        if (!hasExtents(entry))
            continue;
        const BtrfsExtents::File* known =
            isTogether && entry.deviceID == device ? btrfs_.file(entry.fileID) : nullptr;
        // Data that is not written yet has no extents.
        if (known != nullptr && !known->isInline && std::cmp_not_equal(known->length, entry.allocatedSize))
            known = nullptr;
        HeldSpace* const own = held == nullptr ? nullptr : held + (&entry - entries.data());
        if (known != nullptr && known->knowsShared)
            measureKnown(folder, *known, entry, own);
        else
            ask(folder, entry.name.data(), isBtrfs, entry, own, known);
    }
}

void SharedExtents::measure(int folder, const char* name, bool isBtrfs, RawDirectoryEntry& entry,
                            HeldSpace* held) {
    ask(folder, name, isBtrfs, entry, held, nullptr);
}

/// Asks for the extents of a file that may be known but for who shares them.
void SharedExtents::ask(int folder, const char* name, bool isBtrfs, RawDirectoryEntry& entry, HeldSpace* held,
                        const BtrfsExtents::File* known) {
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
        keep(file, isBtrfs, sums, entry, *held, known);
}

void SharedExtents::measure(int file, ExtentMap& extents, std::uint32_t flags, RawDirectoryEntry& entry) {
    Sums sums;
    if (extents.forEach(file, flags, [&](const struct fiemap_extent& extent) { sums.add(extent); }))
        sums.store(entry);
}

} // namespace tarnwell
