#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/PackedAttributeRecords.hpp"

#include "Tests/Support/PackedRecords.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

using namespace PackedAttributes;
using Packer = test::RecordPacker;
using Record = test::PackedRecord;

Record wholeRecord(const std::string& name) {
    return {.name = name,
            .device = -7,
            .type = 1,
            .modified = 978'307'200 + 10,
            .accessed = -5,
            .flags = hiddenFileFlag | datalessFileFlag,
            .fileID = 0xFFFF'FFFF'0000'0001,
            .links = 3,
            .size = std::int64_t{1} << 40,
            .allocated = 4096,
            .privateSize = 0,
            .extended = mayShareBlocksFlag | sharesAllBlocksFlag};
}

struct Decoded {
    DecodeOutcome outcome = {};
    std::vector<RawDirectoryEntry> entries; // their names lie in the decoded bytes
};

Decoded decoded(std::span<const std::byte> bytes, std::size_t count) {
    Decoded result;
    const EntryConsumer consumer = [&](std::span<const RawDirectoryEntry> entries) {
        result.entries.insert(result.entries.end(), entries.begin(), entries.end());
        return true;
    };
    EntryBatch batch;
    batch.begin(consumer);
    result.outcome = decode(bytes, count, batch);
    return result;
}

TEST(PackedAttributeRecords, DecodesEveryFieldAndMissingOnes) {
    Packer packer;
    packer.add(wholeRecord("a"))
        .add({.name = "folder", .type = 2})
        .add(wholeRecord(std::string(255, '\xFF')));
    const auto [outcome, entries] = decoded(packer.bytes, packer.count);
    ASSERT_EQ(outcome, DecodeOutcome::complete);
    ASSERT_EQ(entries.size(), 3u);

    for (const std::size_t index : {std::size_t{0}, std::size_t{2}}) {
        const RawDirectoryEntry& entry = entries[index];
        EXPECT_EQ(entry.name, index == 0 ? "a" : std::string(255, '\xFF'));
        EXPECT_EQ(entry.deviceID, -7);
        EXPECT_EQ(entry.objectType, VnodeType::regular);
        EXPECT_EQ(entry.modificationSeconds, 10);
        EXPECT_EQ(entry.accessSeconds, -5 - referenceDateOffset);
        EXPECT_EQ(entry.finderFlags, hiddenFileFlag | datalessFileFlag);
        EXPECT_EQ(entry.fileID, 0xFFFF'FFFF'0000'0001);
        EXPECT_EQ(entry.linkCount, 3u);
        EXPECT_EQ(entry.logicalSize, std::int64_t{1} << 40);
        EXPECT_EQ(entry.allocatedSize, 4096);
        EXPECT_TRUE(entry.reportsPrivateSize);
        EXPECT_EQ(entry.privateSize, 0);
        EXPECT_EQ(entry.extFlags, mayShareBlocksFlag | sharesAllBlocksFlag);
    }
    EXPECT_EQ(entries[1].objectType, VnodeType::directory);
    EXPECT_EQ(entries[1].modificationSeconds, missingFileTime);
    EXPECT_FALSE(entries[1].reportsPrivateSize);
    EXPECT_EQ(entries[1].logicalSize, 0);
}

TEST(PackedAttributeRecords, MountsAreToldByTheirStatusOnly) {
    const struct {
        std::uint32_t status;
        bool isCovered;
        std::uint32_t flags;
    } cases[] = {{0, false, 0},
                 {mountStatusMountPoint, true, 0},
                 {mountStatusTrigger, false, automountFileFlag},
                 {mountStatusMountPoint | mountStatusTrigger, true, 0}};
    for (const auto& each : cases) {
        Packer packer;
        packer.add({.name = "folder", .device = 3, .flags = 0x8000'8000, .mountStatus = each.status});
        RawDirectoryEntry seen;
        const EntryConsumer consumer = [&](std::span<const RawDirectoryEntry> entries) {
            seen = entries.front();
            return true;
        };
        EntryBatch batch;
        batch.begin(consumer);
        const std::int32_t device = 4;
        EXPECT_EQ(decode(packer.bytes, packer.count, batch, &device), DecodeOutcome::complete);
        EXPECT_EQ(seen.isCovered, each.isCovered);
        EXPECT_EQ(seen.finderFlags, hiddenFileFlag | each.flags);
        EXPECT_EQ(seen.deviceID, device);
    }
}

TEST(PackedAttributeRecords, DropsDotNamesButKeepsErrors) {
    Packer packer;
    for (const char* name : {".", "..", "", "..."})
        packer.add({.name = name, .type = 2});
    packer.add({.error = 13, .name = "locked"}).add({.error = 5});
    const auto [outcome, entries] = decoded(packer.bytes, packer.count);
    ASSERT_EQ(outcome, DecodeOutcome::complete);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].name, "...");
    EXPECT_EQ(entries[1].name, "locked");
    EXPECT_EQ(entries[1].errorCode, 13u);
    EXPECT_EQ(entries[2].name, "");
    EXPECT_EQ(entries[2].errorCode, 5u);
}

TEST(PackedAttributeRecords, SizesThatDidNotFitAreNone) {
    Packer packer;
    packer.add({.name = "size", .type = 1, .size = -1, .allocated = 4096, .privateSize = 4096})
        .add({.name = "allocated",
              .type = 1,
              .size = 1,
              .allocated = std::numeric_limits<std::int64_t>::min()})
        .add({.name = "..", .type = 2, .size = -1})
        .add({.name = "good", .type = 1, .size = 1, .allocated = 1});
    const auto [outcome, entries] = decoded(packer.bytes, packer.count);
    ASSERT_EQ(outcome, DecodeOutcome::complete);
    ASSERT_EQ(entries.size(), 3u);
    for (const RawDirectoryEntry& entry : entries) {
        const bool isGood = entry.name == "good";
        EXPECT_EQ(entry.errorCode, isGood ? 0u : static_cast<unsigned>(EOVERFLOW)) << entry.name;
        EXPECT_EQ(entry.logicalSize + entry.allocatedSize + entry.privateSize, isGood ? 2 : 0) << entry.name;
        EXPECT_FALSE(entry.reportsPrivateSize) << entry.name;
    }
}

TEST(PackedAttributeRecords, ANameMayReachTheEndOfItsRecordAndNotAByteFurther) {
    constexpr std::uint32_t place = 24; // of the reference in a record that carries a name only
    Packer packer;
    packer.add({.name = "abc"}).add({.name = "next"}); // four bytes with the NUL
    const struct {
        std::int32_t offset;
        std::uint32_t length;
        const char* name; // null where the record is malformed
    } cases[] = {
        {8, 4, "abc"},
        {8, 3, "abc"},
        {8, 5, nullptr},
        {9, 4, nullptr},
        {11, 1, ""},
        {12, 0, ""},
        {13, 0, nullptr},
        {-std::int32_t{place}, 1, "$"}, // the record's own length
        {-std::int32_t{place} - 1, 1, nullptr},
    };
    for (const auto& each : cases) {
        packer.overwrite(place, each.offset);
        packer.overwrite(place + 4, each.length);
        const auto [outcome, entries] = decoded(packer.bytes, packer.count);
        EXPECT_EQ(outcome == DecodeOutcome::complete, each.name != nullptr)
            << each.offset << " " << each.length;
        if (each.name != nullptr && *each.name != '\0') {
            EXPECT_EQ(entries.at(0).name, each.name) << each.offset << " " << each.length;
        }
    }
}

TEST(PackedAttributeRecords, RefusesWhatTheKernelDoesNotWrite) {
    constexpr std::size_t nameOffsetPlace = 24;
    constexpr std::size_t nameLengthPlace = 28;
    const struct {
        const char* fault;
        std::size_t place;
        std::uint32_t value;
    } cases[] = {
        {"length of nothing", 0, 0},
        {"length below the masks", 0, 20},
        {"length beyond the buffer", 0, 100'000},
        {"length that cuts the fields", 0, 60},
        {"an attribute nobody asked for", 4, 0xFFFF'FFFF},
        {"a volume attribute", 8, 1},
        {"a directory attribute", 12, 1},
        {"an unknown file attribute", 16, 0x8},
        {"an unknown extended attribute", 20, 0x1},
        {"a name before the record", nameOffsetPlace, static_cast<std::uint32_t>(-1000)},
        {"a name beyond the record", nameOffsetPlace, 0x7FFF'FFFF},
        {"a name longer than the record", nameLengthPlace, 0xFFFF'FFFF},
    };
    for (const auto& each : cases) {
        Packer packer;
        packer.add(wholeRecord("name"));
        packer.overwrite(each.place, each.value);
        const auto [outcome, entries] = decoded(packer.bytes, packer.count);
        EXPECT_EQ(outcome, DecodeOutcome::malformed) << each.fault;
        EXPECT_TRUE(entries.empty()) << each.fault;
    }
}

TEST(PackedAttributeRecords, TruncatedBuffersAndCountsThatLie) {
    Packer packer;
    packer.add(wholeRecord("first")).add(wholeRecord("second"));
    for (std::size_t length = 0; length < packer.bytes.size(); ++length) {
        // A copy of the exact length, so that a read beyond it is caught by the sanitizer.
        const std::vector<std::byte> cut(packer.bytes.begin(),
                                         packer.bytes.begin() + static_cast<long>(length));
        EXPECT_EQ(decoded(cut, packer.count).outcome, DecodeOutcome::malformed) << length;
    }
    const auto [outcome, entries] = decoded(packer.bytes, 3);
    EXPECT_EQ(outcome, DecodeOutcome::malformed);
    EXPECT_EQ(entries.size(), 2u);
    EXPECT_EQ(decoded(packer.bytes, 0).outcome, DecodeOutcome::complete);
}

TEST(PackedAttributeRecords, SurvivesRandomDamage) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 20'000; ++round) {
        Packer packer;
        packer.add(wholeRecord("one")).add({.error = 1, .name = "two"}).add(wholeRecord("three"));
        for (auto changes = random() % 6; changes > 0; --changes)
            packer.bytes[random() % packer.bytes.size()] = static_cast<std::byte>(random());
        for (const RawDirectoryEntry& entry : decoded(packer.bytes, random() % 5).entries)
            EXPECT_LE(entry.name.size(), packer.bytes.size());
    }
}

TEST(PackedAttributeRecords, HandsOnInPartsUntilTheConsumerHasEnough) {
    Packer packer;
    constexpr std::size_t count = 1000;
    for (std::size_t index = 0; index < count; ++index)
        packer.add(wholeRecord(std::to_string(index)));
    for (const std::size_t enough : {std::size_t{1}, std::size_t{300}, count, 2 * count}) {
        std::size_t seen = 0;
        const EntryConsumer consumer = [&](std::span<const RawDirectoryEntry> entries) {
            for (const RawDirectoryEntry& entry : entries)
                EXPECT_EQ(entry.name, std::to_string(seen++));
            return seen < enough;
        };
        EntryBatch batch;
        batch.begin(consumer);
        EXPECT_EQ(decode(packer.bytes, packer.count, batch),
                  enough <= count ? DecodeOutcome::stopped : DecodeOutcome::complete);
        EXPECT_GE(seen, std::min(enough, count));
        EXPECT_LT(seen, enough + 300);
    }
}

TEST(PackedAttributeRecords, KnowsTheErrorsOfFileSystemsWithoutBulkReading) {
    for (int error = 0; error < 120; ++error)
        EXPECT_EQ(isUnsupportedError(error), error == 45 || error == 22) << error;
}

} // namespace
} // namespace tarnwell
