// Reading folders in bulk over a kernel that packs attributes as Darwin's does.

#include "TarnwellCore/Platform/HeldSpace.hpp"
#include "TarnwellCore/Scanning/DirectoryReader.hpp"

#include "Tests/DarwinEmulation/EmulatedKernel.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <map>
#include <string>

namespace tarnwell {
namespace {

using test::EmulatedBehaviour;
using test::EmulatedKernel;

constexpr std::int32_t device = 42;

std::map<std::string, RawDirectoryEntry> read(DirectoryReader& reader, const std::string& path) {
    std::map<std::string, RawDirectoryEntry> found;
    const int folder = DirectoryReader::openDirectory(path);
    EXPECT_TRUE(reader.readEntries(folder, device, [&](std::span<const RawDirectoryEntry> entries) {
        for (const RawDirectoryEntry& entry : entries)
            found.emplace(entry.name, entry);
        return true;
    }));
    ::close(folder);
    return found;
}

/// Everything but the name, and but one field when it is absent.
std::string describe(const RawDirectoryEntry& entry) {
    std::string text;
    for (const auto number :
         {static_cast<std::int64_t>(entry.objectType), std::int64_t{entry.deviceID},
          static_cast<std::int64_t>(entry.fileID), std::int64_t{entry.linkCount}, entry.logicalSize,
          entry.allocatedSize, entry.privateSize, std::int64_t{entry.extFlags},
          std::int64_t{entry.reportsPrivateSize}, std::int64_t{entry.isCovered},
          std::int64_t{entry.finderFlags}, std::int64_t{entry.errorCode}})
        text += std::to_string(number) + " ";
    return text + std::to_string(entry.modificationSeconds) + " " + std::to_string(entry.accessSeconds);
}

TEST(BulkRecords, AnyAttributeMayBeAbsent) {
    const test::TemporaryFolder folder;
    folder.makeFile("file", 5000);
    folder.makeFile("folder/inner");
    // All that the kernel keeps for itself is set, the bit that stands for automounts here among it.
    constexpr test::EmulatedEntry whole = {.flags = 0xFFFF'FFFF, .privateSize = 700, .extendedFlags = 0x41};
    const auto readWith = [&](const EmulatedBehaviour& behaviour) {
        EmulatedKernel kernel(behaviour);
        kernel.describe(folder / "file", whole);
        kernel.describe(folder / "folder", {.flags = hiddenFileFlag, .isTrigger = true});
        DirectoryReader reader;
        auto entries = read(reader, folder.path());
        EXPECT_EQ(reader.posixFallbackCount(), 0u);
        return entries;
    };
    const auto complete = readWith({});
    ASSERT_EQ(complete.size(), 2u);
    const RawDirectoryEntry& file = complete.at("file");
    const RawDirectoryEntry& subfolder = complete.at("folder");
    EXPECT_EQ(file.finderFlags, 0x7FFF'FFFFu);
    EXPECT_EQ(file.deviceID, device);
    EXPECT_EQ(file.logicalSize, 5000);
    EXPECT_EQ(file.privateSize, 700);
    EXPECT_EQ(file.extFlags, 0x41u);
    EXPECT_EQ(subfolder.finderFlags, hiddenFileFlag | automountFileFlag);

    const struct {
        EmulatedBehaviour behaviour;
        std::function<void(RawDirectoryEntry&)> clear;
    } cases[] = {
        {{.withheldCommon = 0x2}, [](auto&) {}}, // devices are not taken from records
        {{.withheldCommon = 0x8}, [](auto& entry) { entry.objectType = VnodeType::none; }},
        {{.withheldCommon = 0x400}, [](auto& entry) { entry.modificationSeconds = missingFileTime; }},
        {{.withheldCommon = 0x1000}, [](auto& entry) { entry.accessSeconds = missingFileTime; }},
        {{.withheldCommon = 0x40000}, [](auto& entry) { entry.finderFlags &= automountFileFlag; }},
        {{.withheldCommon = 0x2000000}, [](auto& entry) { entry.fileID = 0; }},
        {{.withheldCommon = 0x20000000}, [](auto&) {}}, // no error
        {{.withheldDirectory = 0x4}, [](auto& entry) { entry.finderFlags &= ~automountFileFlag; }},
        {{.withheldFile = 0x1}, [](auto& entry) { entry.linkCount = 0; }},
        {{.withheldFile = 0x2}, [](auto& entry) { entry.logicalSize = 0; }},
        {{.withheldFile = 0x4}, [](auto& entry) { entry.allocatedSize = 0; }},
        {{.withheldExtended = 0x8},
         [](auto& entry) {
             entry.privateSize = 0;
             entry.reportsPrivateSize = false;
         }},
        {{.withheldExtended = 0x200}, [](auto& entry) { entry.extFlags = 0; }},
    };
    for (const auto& each : cases) {
        const auto entries = readWith(each.behaviour);
        ASSERT_EQ(entries.size(), 2u);
        for (const auto& [name, entry] : entries) {
            RawDirectoryEntry expected = complete.at(name);
            each.clear(expected);
            EXPECT_EQ(describe(entry), describe(expected))
                << name << " without " << each.behaviour.withheldCommon << " "
                << each.behaviour.withheldDirectory << " " << each.behaviour.withheldFile << " "
                << each.behaviour.withheldExtended;
        }
    }
    // Nobody can do anything with an entry that has neither a name nor an error.
    EXPECT_TRUE(readWith({.withheldCommon = 0x1}).empty());
}

TEST(BulkRecords, ErrorsOfEntriesAndOfFileSystems) {
    const test::TemporaryFolder folder;
    folder.makeFile("good", 1);
    folder.makeFile("bad", 2);
    {
        EmulatedKernel kernel;
        kernel.describe(folder / "bad", {.error = EPERM});
        DirectoryReader reader;
        const auto entries = read(reader, folder.path());
        EXPECT_EQ(entries.at("bad").errorCode, static_cast<std::uint32_t>(EPERM));
        EXPECT_EQ(entries.at("good").errorCode, 0u);
    }
    EmulatedKernel kernel({.bulkError = ENOTSUP});
    kernel.describe(folder / "good", {.flags = 0xFFFF'FFFF});
    DirectoryReader reader;
    const auto entries = read(reader, folder.path());
    EXPECT_EQ(reader.posixFallbackCount(), 1u);
    EXPECT_EQ(entries.at("good").finderFlags, 0x7FFF'FFFFu);
    EXPECT_EQ(entries.at("good").logicalSize, 1);
}

// A kernel that refuses is remembered by the process: that part comes last.
TEST(BulkRecords, FilesThatShareAllBlocksSayWithHowManyClones) {
    const test::TemporaryFolder folder;
    for (const char* name : {"clone", "changed", "alone", "cloud"})
        folder.makeFile(name, 8192);
    const auto describeAll = [&](EmulatedKernel& kernel) {
        const std::uint32_t shares = mayShareBlocksFlag | sharesAllBlocksFlag;
        const test::EmulatedEntry clone{.privateSize = 0,
                                        .extendedFlags = shares,
                                        .cloneIdentifier = 0x1'0000'0007,
                                        .cloneReferences = 3};
        test::EmulatedEntry other = clone;
        kernel.describe(folder / "clone", clone);
        other.flags = datalessFileFlag;
        kernel.describe(folder / "cloud", other);
        other = clone;
        other.extendedFlags = mayShareBlocksFlag;
        kernel.describe(folder / "changed", other);
        other = clone;
        other.cloneReferences = 1;
        kernel.describe(folder / "alone", other);
    };
    const auto readHeld = [&](bool keepsHeldSpace) {
        std::map<std::string, HeldSpace> held;
        DirectoryReader reader(DirectoryCalls::live(), keepsHeldSpace);
        const int descriptor = DirectoryReader::openDirectory(folder.path());
        reader.readEntries(descriptor, device, [&](std::span<const RawDirectoryEntry> entries) {
            for (const RawDirectoryEntry& entry : entries) {
                EXPECT_NE(entry.extFlags & mayShareBlocksFlag, 0u) << entry.name;
                if (entry.held != nullptr)
                    held.emplace(entry.name, *entry.held);
            }
            return true;
        });
        ::close(descriptor);
        EXPECT_EQ(reader.posixFallbackCount(), 0u);
        return held;
    };
    {
        EmulatedKernel kernel;
        describeAll(kernel);
        const auto held = readHeld(true);
        ASSERT_EQ(held.size(), 1u);
        const HeldSpace& clone = held.at("clone");
        EXPECT_EQ(clone.references, 3u);
        EXPECT_EQ(clone.exclusive, 0);
        ASSERT_EQ(clone.extents.size(), 1u);
        EXPECT_EQ(clone.extents[0].start, 0x1'0000'0007u);
        EXPECT_GE(clone.extents[0].length, 8192u);
        EXPECT_TRUE(readHeld(false).empty());
    }
    EmulatedKernel kernel({.knowsCloneReferences = false});
    describeAll(kernel);
    EXPECT_TRUE(readHeld(true).empty());
}

} // namespace
} // namespace tarnwell
