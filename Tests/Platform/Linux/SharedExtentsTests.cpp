#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <future>

namespace tarnwell {
namespace {

constexpr std::int64_t allocated = 4096;
std::uint64_t reportedLength; // of each of two extents, the second of which is shared

RawDirectoryEntry measured(const test::TemporaryFolder& folder, const char* name) {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.readExtents = [](int, void* place) {
        auto& map = *static_cast<struct fiemap*>(place);
        map.fm_mapped_extents = 2;
        map.fm_extents[0].fe_length = map.fm_extents[1].fe_length = reportedLength;
        map.fm_extents[1].fe_logical = 4096;
        map.fm_extents[1].fe_flags = FIEMAP_EXTENT_LAST | FIEMAP_EXTENT_SHARED;
        return 0;
    };
    const int descriptor = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    RawDirectoryEntry entry;
    entry.logicalSize = entry.allocatedSize = allocated;
    SharedExtents(calls).measure(descriptor, name, false, entry, nullptr);
    ::close(descriptor);
    return entry;
}

TEST(SharedExtents, LengthsThatFitNo64BitsAreNotBelieved) {
    const test::TemporaryFolder folder;
    folder.makeFile("file", 1);
    reportedLength = std::uint64_t{1} << 62;
    EXPECT_EQ(measured(folder, "file").privateSize, allocated / 2);
    reportedLength = std::uint64_t{1} << 63;
    const RawDirectoryEntry entry = measured(folder, "file");
    EXPECT_EQ(entry.errorCode, EOVERFLOW);
    EXPECT_EQ(entry.logicalSize + entry.allocatedSize + entry.privateSize, 0);
    EXPECT_FALSE(entry.reportsPrivateSize);
}

TEST(SharedExtents, APipeInTheFilesPlaceIsNotWaitedFor) {
    const test::TemporaryFolder folder;
    const std::string pipe = folder / "file";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
    const auto measuring = std::async(std::launch::async, [&] { return measured(folder, "file"); });
    const bool isWaiting = measuring.wait_for(std::chrono::seconds(20)) != std::future_status::ready;
    EXPECT_FALSE(isWaiting);
    if (isWaiting) // lets it go
        ::close(::open(pipe.c_str(), O_RDWR | O_CLOEXEC));
}

} // namespace
} // namespace tarnwell
