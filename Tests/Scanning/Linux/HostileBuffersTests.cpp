#include "TarnwellCore/Scanning/DirectoryReader.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {
namespace {

using test::TemporaryFolder;

TEST(DirectoryReader, HostileBulkBuffers) {
    struct Fault {
        std::uint16_t length;
        std::string name;
        bool isRead;
    };
    const Fault faults[] = {
        {24, std::string("a\0\0\0\0", 5), true},    // a sound record (the file does not exist)
        {0, std::string("a\0\0\0\0", 5), false},    // would never move on
        {19, "", false},                            // no room for a name
        {23, std::string("a\0\0\0\0", 5), false},   // leaves a byte over
        {4096, std::string("a\0\0\0\0", 5), false}, // reaches beyond what was filled
        {24, std::string("abcd\0", 5), true},       // as long as there is room
        {24, "abcde", false},                       // not terminated
    };
    static const Fault* fault; // null once it is delivered
    DirectoryCalls calls = DirectoryCalls::live();
    calls.readPacked = [](int, std::byte* buffer, std::size_t) -> long {
        const Fault* const delivered = std::exchange(fault, nullptr);
        if (delivered == nullptr)
            return 0;
        std::memset(buffer, 'x', 64);
        std::memcpy(buffer + 16, &delivered->length, 2);
        std::memcpy(buffer + 19, delivered->name.data(), delivered->name.size());
        return 24;
    };
    const TemporaryFolder folder;
    const int descriptor = DirectoryReader::openDirectory(folder.path());
    for (const Fault& each : faults) {
        fault = &each;
        DirectoryReader reader(calls);
        std::vector<std::uint32_t> errorCodes;
        const auto note = [&](std::span<const RawDirectoryEntry> entries) {
            for (const RawDirectoryEntry& entry : entries)
                errorCodes.push_back(entry.errorCode);
            return true;
        };
        EXPECT_EQ(reader.readEntries(descriptor, 1, note), each.isRead) << each.length;
        if (each.isRead) {
            EXPECT_EQ(errorCodes, std::vector<std::uint32_t>{ENOENT});
        }
    }
    ::close(descriptor);
}

} // namespace
} // namespace tarnwell
