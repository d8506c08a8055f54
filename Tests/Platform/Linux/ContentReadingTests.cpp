#include "TarnwellCore/Platform/ContentReading.hpp"
#include "TarnwellCore/Platform/MeasuredFile.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <expected>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace tarnwell {
namespace {

constexpr std::int64_t page = 4096;

/// How many pages of an open file the kernel holds.
std::int64_t heldPages(int file, std::int64_t size) {
    void* const map = ::mmap(nullptr, static_cast<std::size_t>(size), PROT_READ, MAP_SHARED, file, 0);
    std::vector<unsigned char> pages(static_cast<std::size_t>((size + page - 1) / page));
    EXPECT_EQ(::mincore(map, static_cast<std::size_t>(size), pages.data()), 0);
    ::munmap(map, static_cast<std::size_t>(size));
    return std::ranges::count_if(pages, [](unsigned char held) { return (held & 1) != 0; });
}

TEST(ContentReading, LeavesTheCacheAsItWas) {
    constexpr std::int64_t size = (5 << 20) + 100;
    const test::TemporaryFolder folder(".");
    std::string text(size, '\0');
    for (std::size_t index = 0; index < text.size(); ++index)
        text[index] = static_cast<char>(index / (1 << 20) + index / 4096 + index / 256);
    const auto path = folder.writeFile("file", text);
    const auto isAt = [&](std::int64_t offset, std::span<const std::byte> bytes) {
        return std::memcmp(text.data() + offset, bytes.data(), bytes.size()) == 0;
    };
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::fsync(file), 0);
    ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
    if (heldPages(file, size) > 0)
        GTEST_SKIP() << "this file system keeps what it should forget";
    ContentReader reader;
    const auto readAll = [&](std::int64_t length) {
        std::int64_t total = 0;
        const int error = reader.read(file, length, [&](std::span<const std::byte> bytes) {
            EXPECT_LE(bytes.size(), ContentReader::pieceLength);
            EXPECT_TRUE(isAt(total, bytes));
            total += static_cast<std::int64_t>(bytes.size());
            return true;
        });
        EXPECT_EQ(error, 0);
        EXPECT_EQ(total, length);
    };
    // The kernel cannot forget a page that somebody has in hand for a moment, and forgets others when it
    // wants to.
    const auto holdsInTheEnd = [](const std::function<bool()>& isTrue) {
        for (int attempt = 0; attempt < 20; ++attempt) {
            if (isTrue())
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    };
    const auto forget = [&] { ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED); };
    // At the same pace as another, which gives up on the way.
    const auto readInStep = [&](std::int64_t length) {
        constexpr std::size_t step = 65'536;
        ContentReader other;
        const int others = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        reader.begin(file, length, step, step * 4);
        other.begin(others, length, step, step * 4);
        for (std::int64_t offset = 0; offset < length;) {
            const auto bytes = reader.next();
            ASSERT_TRUE(bytes);
            ASSERT_EQ(std::ssize(*bytes), std::min<std::int64_t>(step, length - offset));
            EXPECT_TRUE(isAt(offset, *bytes));
            offset += std::ssize(*bytes);
            if (offset < size / 2) {
                EXPECT_TRUE(other.next());
            }
        }
        EXPECT_TRUE(reader.next()->empty());
        reader.end();
        other.end();
        ::close(others);
    };
    for (const std::int64_t length : {std::int64_t{4'096}, std::int64_t{65'536}, size})
        EXPECT_TRUE(holdsInTheEnd([&] {
            forget();
            readAll(length);
            readInStep(length);
            return heldPages(file, size) == 0;
        })) << length;
    // What others have read stays.
    EXPECT_TRUE(holdsInTheEnd([&] {
        constexpr std::int64_t read = (2 << 20) / page;
        forget();
        ::posix_fadvise(file, 0, 0, POSIX_FADV_RANDOM); // or the kernel reads on for a while
        char byte = 0;
        for (std::int64_t index = 0; index < read; ++index)
            EXPECT_EQ(::pread(file, &byte, 1, index * page), 1);
        const std::int64_t before = heldPages(file, size);
        readAll(size);
        readInStep(size);
        const std::int64_t after = heldPages(file, size);
        return before == read && after == read;
    }));

    const auto ignore = [](std::span<const std::byte>) { return true; };
    EXPECT_EQ(reader.read(file, size + 1, ignore), ESTALE);
    EXPECT_EQ(reader.read(file, size, [](std::span<const std::byte>) { return false; }), ECANCELED);
    reader.begin(file, size + 1, ContentReader::pieceLength, ContentReader::pieceLength);
    std::expected<std::span<const std::byte>, int> bytes;
    while ((bytes = reader.next()) && !bytes->empty()) {
    }
    EXPECT_EQ(bytes, std::unexpected(ESTALE));
    reader.end();
    ::close(file);
    EXPECT_EQ(reader.read(file, size, ignore), EBADF);
}

TEST(MeasuredFile, IsReadWithoutATraceAndIsNothingElse) {
    const test::TemporaryFolder folder(".");
    const auto path = folder.makeFile("file", 10);
    const struct timespec longAgo[2] = {{1'000, 0}, {2'000, 3}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), longAgo, 0), 0);
    const int parent = ::open(folder.path().c_str(), O_PATH | O_CLOEXEC);
    const FileVersion version = measureFile(parent, "file")->version;
    const int file = *openMeasuredFile(parent, "file", version);
    char byte = 0;
    ASSERT_EQ(::read(file, &byte, 1), 1);
    struct stat status = {};
    ASSERT_EQ(::fstat(file, &status), 0);
    EXPECT_EQ(status.st_atim.tv_sec, 1'000);
    EXPECT_EQ(version.modified, 2'000'000'000'003);
    EXPECT_TRUE(requireVersion(file, version));
    ::close(file);

    ::symlink("file", (folder / "link").c_str());
    ::mkfifo((folder / "fifo").c_str(), 0600);
    for (const char* name : {"link", "fifo", "."})
        EXPECT_EQ(openMeasuredFile(parent, name, version).error().kind, FileFault::Kind::replaced) << name;
    ::close(parent);
}

} // namespace
} // namespace tarnwell
