#include "TarnwellCore/Platform/PackedAttributeRecords.hpp"

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/EntrySizes.hpp"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace tarnwell::PackedAttributes {

namespace {

/// Reads values one after the other; once a value would lie outside, every further read fails.
class Cursor {
public:
    explicit Cursor(std::span<const std::byte> bytes) : bytes_(bytes) {}

    template <class Value>
    Value take() {
        static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) % 4 == 0);
        Value value{};
        if (bytes_.size() - position_ < sizeof value) {
            isInside_ = false;
            position_ = bytes_.size();
            return value;
        }
        std::memcpy(&value, bytes_.data() + position_, sizeof value);
        position_ += sizeof value;
        return value;
    }

    std::size_t position() const { return position_; }
    bool isInside() const { return isInside_; }

private:
    std::span<const std::byte> bytes_;
    std::size_t position_ = 0;
    bool isInside_ = true;
};

struct NameReference {
    std::int32_t offset;
    std::uint32_t length;
};

/// The kernel's struct timespec of 64-bit programs.
struct Time {
    std::int64_t seconds;
    std::int64_t nanoseconds;
};

struct AttributeSet {
    std::uint32_t common;
    std::uint32_t volume;
    std::uint32_t directory;
    std::uint32_t file;
    std::uint32_t extended;
};

double secondsFrom(const Time& time) {
    return static_cast<double>(time.seconds) - referenceDateOffset;
}

/// What a record says of the clones of a file; 0 without.
struct Clones {
    std::uint64_t identifier = 0;
    std::uint32_t references = 0;
};

/// One record; false when it is malformed.
bool decodeRecord(std::span<const std::byte> record, RawDirectoryEntry& entry, Clones& clones) {
    Cursor cursor(record);
    cursor.take<std::uint32_t>(); // its length, known already
    const auto returned = cursor.take<AttributeSet>();
    if ((returned.common & ~requestedCommon) != 0 || returned.volume != 0 ||
        (returned.directory & ~requestedDirectory) != 0 || (returned.file & ~requestedFile) != 0 ||
        (returned.extended & ~(requestedExtended | requestedOfClones)) != 0)
        return false;

    if ((returned.common & commonError) != 0)
        entry.errorCode = cursor.take<std::uint32_t>();
    if ((returned.common & commonName) != 0) {
        const std::size_t place = cursor.position();
        const auto reference = cursor.take<NameReference>();
        const std::int64_t start = static_cast<std::int64_t>(place) + reference.offset;
        if (!cursor.isInside() || start < 0 ||
            start + static_cast<std::int64_t>(reference.length) > static_cast<std::int64_t>(record.size()))
            return false;
        entry.name = {reinterpret_cast<const char*>(record.data()) + start, reference.length};
        entry.name = entry.name.substr(0, entry.name.find('\0'));
    }
    if ((returned.common & commonDevice) != 0)
        entry.deviceID = cursor.take<std::int32_t>();
    if ((returned.common & commonObjectType) != 0)
        entry.objectType = static_cast<VnodeType>(cursor.take<std::uint32_t>());
    if ((returned.common & commonModificationTime) != 0)
        entry.modificationSeconds = secondsFrom(cursor.take<Time>());
    if ((returned.common & commonAccessTime) != 0)
        entry.accessSeconds = secondsFrom(cursor.take<Time>());
    if ((returned.common & commonFlags) != 0)
        entry.finderFlags = cursor.take<std::uint32_t>() & ~automountFileFlag;
    if ((returned.common & commonFileID) != 0)
        entry.fileID = cursor.take<std::uint64_t>();
    if ((returned.directory & directoryMountStatus) != 0) {
        const auto status = cursor.take<std::uint32_t>();
        entry.isCovered = (status & mountStatusMountPoint) != 0;
        // Once something is mounted, opening the folder mounts nothing more.
        if ((status & mountStatusTrigger) != 0 && !entry.isCovered)
            entry.finderFlags |= automountFileFlag;
    }
    if ((returned.file & fileLinkCount) != 0)
        entry.linkCount = cursor.take<std::uint32_t>();
    if ((returned.file & fileTotalSize) != 0)
        entry.logicalSize = cursor.take<std::int64_t>();
    if ((returned.file & fileAllocatedSize) != 0)
        entry.allocatedSize = cursor.take<std::int64_t>();
    if ((returned.extended & extendedPrivateSize) != 0) {
        entry.privateSize = cursor.take<std::int64_t>();
        entry.reportsPrivateSize = true;
    }
    if ((returned.extended & extendedCloneIdentifier) != 0)
        clones.identifier = cursor.take<std::uint64_t>();
    // 64 bits wide in the record, of which the lower half, first in memory, is defined.
    if ((returned.extended & extendedFlags) != 0)
        entry.extFlags = cursor.take<std::uint32_t>();
    if ((returned.extended & extendedCloneReferences) != 0) {
        if ((returned.extended & extendedFlags) != 0)
            cursor.take<std::uint32_t>();
        clones.references = cursor.take<std::uint32_t>();
    }
    return cursor.isInside();
}

/// A placeholder's blocks are not here. Of a file that shares some blocks only, nobody says with whom.
bool isCloneOfOthers(const RawDirectoryEntry& entry, const Clones& clones) {
    return clones.identifier != 0 && clones.references > 1 && entry.errorCode == 0 &&
           entry.objectType == VnodeType::regular && entry.reportsPrivateSize &&
           (entry.extFlags & sharesAllBlocksFlag) != 0 && (entry.finderFlags & datalessFileFlag) == 0;
}

void describe(HeldSpace& held, const RawDirectoryEntry& entry, const Clones& clones) {
    const std::int64_t exclusive = std::clamp<std::int64_t>(entry.privateSize, 0, entry.allocatedSize);
    held.traits = HeldSpace::cloneGroup | HeldSpace::knowsExclusive;
    held.fileSystem = static_cast<std::uint32_t>(entry.deviceID);
    held.references = clones.references;
    held.exclusive = exclusive;
    held.extents = {{clones.identifier, static_cast<std::uint64_t>(entry.allocatedSize - exclusive)}};
}

bool isLeftOut(const RawDirectoryEntry& entry) {
    return entry.errorCode == 0 && (entry.name.empty() || entry.name == "." || entry.name == "..");
}

} // namespace

DecodeOutcome decode(std::span<const std::byte> bytes, std::size_t recordCount, EntryBatch& batch,
                     const std::int32_t* device, HeldByBatch* held) {
    bool isWellFormed = true;
    for (; recordCount > 0; --recordCount) {
        if (batch.isFull() && !batch.handOn())
            return DecodeOutcome::stopped;
        std::uint32_t length = 0;
        if (bytes.size() >= sizeof length)
            std::memcpy(&length, bytes.data(), sizeof length);
        isWellFormed = length >= sizeof length + sizeof(AttributeSet) && length <= bytes.size();
        if (!isWellFormed)
            break;
        RawDirectoryEntry& entry = batch.add();
        Clones clones;
        isWellFormed = decodeRecord(bytes.first(length), entry, clones);
        if (device != nullptr)
            entry.deviceID = *device;
        if (!isWellFormed || isLeftOut(entry))
            batch.removeLast();
        else if (entry.errorCode == 0 && (entry.logicalSize < 0 || entry.allocatedSize < 0))
            rejectSizes(entry);
        else if (held != nullptr && isCloneOfOthers(entry, clones)) {
            HeldSpace& place = (*held)[batch.count() - 1];
            describe(place, entry, clones);
            entry.held = &place;
        }
        if (!isWellFormed)
            break;
        bytes = bytes.subspan(length);
    }
    if (!batch.handOn())
        return DecodeOutcome::stopped;
    return isWellFormed ? DecodeOutcome::complete : DecodeOutcome::malformed;
}

} // namespace tarnwell::PackedAttributes
