// The decoder of packed attribute records. Input: the number of records, what a second look is given (in
// words of four bytes) and a third one wants (in entries), a byte each; the buffer. Exercises:
// TarnwellCore/Platform/PackedAttributeRecords.cpp

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/PackedAttributeRecords.hpp"

#include "Tests/Support/PackedRecords.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Fuzz/Require.hpp"

namespace tarnwell::fuzz {

namespace {

/// What a buffer gives to a consumer that wants no more once it has `enough` entries.
struct Decoded {
    PackedAttributes::DecodeOutcome outcome = {};
    std::unique_ptr<std::byte[]> bytes; // names lie in them
    std::vector<RawDirectoryEntry> entries = {};

    /// The bytes are copied into memory of their length: a read beyond them ends the program.
    Decoded(std::span<const std::byte> buffer, std::size_t recordCount,
            std::size_t enough = std::numeric_limits<std::size_t>::max())
        : bytes(std::make_unique_for_overwrite<std::byte[]>(buffer.size())) {
        std::ranges::copy(buffer, bytes.get());
        const EntryConsumer consumer = [&](std::span<const RawDirectoryEntry> next) {
            require(!next.empty() && entries.size() < enough, "only entries that are wanted are handed on");
            entries.insert(entries.end(), next.begin(), next.end());
            return entries.size() < enough;
        };
        EntryBatch batch;
        batch.begin(consumer);
        outcome = PackedAttributes::decode({bytes.get(), buffer.size()}, recordCount, batch);
    }
};

bool isEqual(const RawDirectoryEntry& a, const RawDirectoryEntry& b) {
    return a.name == b.name && a.objectType == b.objectType && a.deviceID == b.deviceID &&
           a.fileID == b.fileID && a.linkCount == b.linkCount && a.logicalSize == b.logicalSize &&
           a.allocatedSize == b.allocatedSize && a.privateSize == b.privateSize && a.extFlags == b.extFlags &&
           a.reportsPrivateSize == b.reportsPrivateSize && a.isCovered == b.isCovered &&
           a.modificationSeconds == b.modificationSeconds && a.accessSeconds == b.accessSeconds &&
           a.finderFlags == b.finderFlags && a.errorCode == b.errorCode;
}

bool isFront(const std::vector<RawDirectoryEntry>& front, const std::vector<RawDirectoryEntry>& whole) {
    return front.size() <= whole.size() && std::equal(front.begin(), front.end(), whole.begin(), isEqual);
}

/// Seconds since 1970 from which the same time is read; nothing for a missing or a far one.
std::optional<std::int64_t> packedTime(double seconds) {
    constexpr double far = 1e15; // beyond it a double does not hold every second
    if (!(std::abs(seconds) < far))
        return std::nullopt;
    return static_cast<std::int64_t>(seconds + referenceDateOffset);
}

/// A record from which the same entry is read, but for times that cannot be packed.
test::PackedRecord repacked(const RawDirectoryEntry& entry) {
    test::PackedRecord record{.error = entry.errorCode,
                              .name = std::string(entry.name),
                              .device = entry.deviceID,
                              .type = static_cast<std::uint32_t>(entry.objectType),
                              .modified = packedTime(entry.modificationSeconds),
                              .accessed = packedTime(entry.accessSeconds),
                              .flags = entry.finderFlags,
                              .fileID = entry.fileID,
                              .links = entry.linkCount,
                              .size = entry.logicalSize,
                              .allocated = entry.allocatedSize,
                              .extended = entry.extFlags};
    if ((entry.finderFlags & automountFileFlag) != 0)
        record.mountStatus = PackedAttributes::mountStatusTrigger;
    else if (entry.isCovered)
        record.mountStatus = PackedAttributes::mountStatusMountPoint;
    if (entry.reportsPrivateSize)
        record.privateSize = entry.privateSize;
    return record;
}

RawDirectoryEntry withoutFarTimes(RawDirectoryEntry entry) {
    for (double* time : {&entry.modificationSeconds, &entry.accessSeconds})
        if (!packedTime(*time))
            *time = missingFileTime;
    return entry;
}

/// Entries packed again must be the same entries.
void requireRepackable(const std::vector<RawDirectoryEntry>& entries) {
    test::RecordPacker packer;
    for (const RawDirectoryEntry& entry : entries)
        packer.add(repacked(entry));
    const Decoded again(packer.bytes, packer.count);
    require(again.outcome == PackedAttributes::DecodeOutcome::complete &&
                again.entries.size() == entries.size(),
            "packed entries are read back");
    for (std::size_t index = 0; index < entries.size(); ++index)
        require(isEqual(again.entries[index], withoutFarTimes(entries[index])),
                "a packed entry is the same entry");
}

void requireGoodEntry(const RawDirectoryEntry& entry) {
    require(entry.name.find('\0') == entry.name.npos, "a name holds no NUL");
    require(entry.errorCode != 0 || !(entry.name.empty() || entry.name == "." || entry.name == ".."),
            "an entry without an error has a name of its own");
    require(entry.reportsPrivateSize || entry.privateSize == 0, "what is not reported is 0");
    require(std::isfinite(entry.modificationSeconds) && std::isfinite(entry.accessSeconds),
            "times are finite");
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    if (size < 2)
        return 0;
    const std::size_t recordCount = data[0];
    const std::span bytes(reinterpret_cast<const std::byte*>(data) + 2, size - 2);
    const fuzz::Decoded whole(bytes, recordCount);
    fuzz::require(whole.entries.size() <= recordCount, "a record gives one entry at most");

    for (const RawDirectoryEntry& entry : whole.entries)
        fuzz::requireGoodEntry(entry);
    fuzz::requireRepackable(whole.entries);

    const std::size_t enough = data[1];
    const fuzz::Decoded cut(bytes.first(std::min(bytes.size(), enough * 4)), recordCount);
    fuzz::require(fuzz::isFront(cut.entries, whole.entries),
                  "the front of a buffer gives the front of its entries");
    const fuzz::Decoded stopped(bytes, recordCount, enough + 1);
    fuzz::require(fuzz::isFront(stopped.entries, whole.entries), "entries come in their order");
    fuzz::require(stopped.entries.size() > enough
                      ? stopped.outcome == PackedAttributes::DecodeOutcome::stopped
                      : stopped.outcome == whole.outcome && stopped.entries.size() == whole.entries.size(),
                  "entries come until there are enough");
    return 0;
}
