#include "TarnwellCore/Scanning/DirectoryReader.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>

namespace tarnwell {
namespace {

using test::TemporaryFolder;

struct Reading {
    bool isRead = false;
    int errorNumber = 0;
    std::map<std::string, RawDirectoryEntry> entries;
};

Reading read(DirectoryReader& reader, const std::string& path, std::int32_t deviceID = 1) {
    Reading reading;
    const int folder = DirectoryReader::openDirectory(path);
    reading.isRead = reader.readEntries(folder, deviceID, [&](std::span<const RawDirectoryEntry> entries) {
        for (const RawDirectoryEntry& entry : entries)
            EXPECT_TRUE(reading.entries.emplace(std::string(entry.name), entry).second) << entry.name;
        return true;
    });
    reading.errorNumber = errno;
    // A descriptor that was used before starts over.
    std::size_t count = 0;
    const auto countEntries = [&](std::span<const RawDirectoryEntry> entries) {
        count += entries.size();
        return true;
    };
    if (reading.isRead) {
        EXPECT_TRUE(reader.readEntries(folder, deviceID, countEntries));
        EXPECT_EQ(count, reading.entries.size());
    }
    ::close(folder);
    return reading;
}

DirectoryCalls withoutBulkReading(int errorNumber) {
    static int error;
    error = errorNumber;
    DirectoryCalls calls = DirectoryCalls::live();
    calls.readPacked = [](int, std::byte*, std::size_t) {
        errno = error;
        return -1L;
    };
    return calls;
}

/// Only where bulk reading needs that call.
DirectoryCalls withoutStatx() {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.extendedStatus = [](int, const char*, void*) {
        errno = ENOSYS;
        return -1;
    };
    return calls;
}

const bool needsStatx = DirectoryCalls::live().extendedStatus != nullptr;

TEST(DirectoryReader, BothWaysTellTheSame) {
    const TemporaryFolder folder;
    folder.writeFile("file", "twelve bytes");
    folder.makeFile("large", 300'000);
    folder.makeFolder("folder/inner");
    folder.makeFile(std::string(255, 'n'), 1);
    folder.makeFile("line\nfeed, \"quote\" \x1B[31m " + std::string(folder.takesAnyName() ? "\xFF\xFE" : ""),
                    2);
    ::link((folder / "file").c_str(), (folder / "folder/second link").c_str());
    ::symlink("nowhere", (folder / "symlink").c_str());
    ::mkfifo((folder / "fifo").c_str(), 0644);

    DirectoryReader bulk;
    const std::int32_t device = PathMetadata::lstat(folder.path().string())->deviceID;
    const Reading inBulk = read(bulk, folder.path().string(), device);
    EXPECT_TRUE(inBulk.isRead);
    EXPECT_EQ(bulk.posixFallbackCount(), 0u);
    ASSERT_EQ(inBulk.entries.size(), 7u);

    // An error number, or 0 for a kernel that has bulk reading and no statx.
    for (const int error : {ENOTSUP, EINVAL, 0}) {
        if (error == 0 && !needsStatx)
            continue;
        const DirectoryCalls calls = error != 0 ? withoutBulkReading(error) : withoutStatx();
        DirectoryReader fallback(calls);
        const Reading oneByOne = read(fallback, folder.path().string(), device);
        EXPECT_EQ(fallback.bulkAttemptCount(), 1u); // the second reading knows the device
        EXPECT_EQ(fallback.posixFallbackCount(), 2u);
        ASSERT_EQ(oneByOne.entries.size(), inBulk.entries.size());
        for (const auto& [name, entry] : inBulk.entries) {
            const RawDirectoryEntry& other = oneByOne.entries.at(name);
            struct stat status = {};
            ASSERT_EQ(::lstat((folder / name).c_str(), &status), 0);
            for (const RawDirectoryEntry* each : {&entry, &other}) {
                EXPECT_EQ(each->fileID, status.st_ino) << name;
                EXPECT_EQ(each->objectType == VnodeType::directory, S_ISDIR(status.st_mode)) << name;
                EXPECT_EQ(each->errorCode, 0u) << name;
                // Not every system's bulk reading tells these of folders, and nobody asks for them.
                if (S_ISDIR(status.st_mode))
                    continue;
                EXPECT_EQ(each->logicalSize, status.st_size) << name;
                EXPECT_EQ(each->allocatedSize, status.st_blocks * 512) << name;
                EXPECT_EQ(each->linkCount, status.st_nlink) << name;
            }
            EXPECT_EQ(entry.objectType, other.objectType) << name;
            EXPECT_EQ(entry.deviceID, other.deviceID) << name;
            EXPECT_EQ(entry.modificationSeconds, other.modificationSeconds) << name;
            EXPECT_EQ(entry.accessSeconds, other.accessSeconds) << name;
        }
        EXPECT_EQ(oneByOne.entries.at("symlink").objectType, VnodeType::symbolicLink);
        EXPECT_EQ(oneByOne.entries.at("fifo").objectType, VnodeType::fifo);
        EXPECT_FALSE(oneByOne.entries.at("file").reportsPrivateSize);
    }
}

TEST(DirectoryReader, ManyEntriesNeedManyBuffers) {
    const TemporaryFolder folder;
    const int parent = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    constexpr std::size_t count = 3000; // of 280 bytes each: more than two buffers
    for (std::size_t index = 0; index < count; ++index) {
        std::string name = std::to_string(index);
        name.resize(255, 'x');
        ::close(::openat(parent, name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    }
    ::close(parent);
    DirectoryReader reader;
    EXPECT_EQ(read(reader, folder.path().string()).entries.size(), count);
}

TEST(DirectoryReader, RefusalsAreRememberedPerDevice) {
    const TemporaryFolder folder;
    folder.makeFile("file");
    const DirectoryCalls calls = withoutBulkReading(ENOTSUP);
    DirectoryReader reader(calls);
    for (const std::int32_t device : {1, 1, 2, 1, 2})
        EXPECT_EQ(read(reader, folder.path().string(), device).entries.size(), 1u);
    EXPECT_EQ(reader.bulkAttemptCount(), 2u);
    EXPECT_EQ(reader.posixFallbackCount(), 10u);
}

TEST(DirectoryReader, OtherFailuresAreFailures) {
    const TemporaryFolder folder;
    folder.makeFile("file");
    for (const int error : {EIO, ENOENT, EACCES, ESTALE}) {
        const DirectoryCalls calls = withoutBulkReading(error);
        DirectoryReader reader(calls);
        const Reading reading = read(reader, folder.path().string());
        EXPECT_FALSE(reading.isRead);
        EXPECT_EQ(reading.errorNumber, error);
        EXPECT_EQ(reader.posixFallbackCount(), 0u);
    }
    const struct {
        std::string path;
        int error;
    } unopenable[] = {{folder / "missing", ENOENT}, {folder / "file", ENOTDIR}, {"", ENOENT}};
    for (const auto& each : unopenable) {
        try {
            DirectoryReader::openDirectory(each.path);
            ADD_FAILURE() << each.path;
        } catch (const DirectoryReader::ReadError& error) {
            EXPECT_EQ(error.errorNumber(), each.error) << each.path;
        }
    }
}

TEST(DirectoryReader, EntriesThatCannotBeReadAreDelivered) {
    const TemporaryFolder folder;
    folder.makeFile("list only/file", 5);
    folder.makeFolder("list only/folder");
    ::chmod((folder / "list only").c_str(), 0444);
    ::chmod(folder.path().c_str(), 0755);
    const std::string path = folder / "list only";
    const std::string text = test::runUnprivileged([&] {
        std::string report;
        // Whether bulk reading needs the right to search the folder is up to the system.
        for (const DirectoryCalls& calls :
             {withoutBulkReading(EINVAL), needsStatx ? DirectoryCalls::live() : withoutBulkReading(EINVAL)}) {
            DirectoryReader reader(calls);
            const Reading reading = read(reader, path);
            for (const auto& [name, entry] : reading.entries)
                report += name + " " + std::to_string(entry.errorCode == EACCES) + " " +
                          std::to_string(entry.logicalSize) + "\n";
        }
        return report;
    });
    EXPECT_EQ(text, "file 1 0\nfolder 1 0\nfile 1 0\nfolder 1 0\n");
}

TEST(PathMetadata, DoesNotFollowLinks) {
    const TemporaryFolder folder;
    folder.makeFile("file", 5000);
    ::link((folder / "file").c_str(), (folder / "other").c_str());
    ::symlink("file", (folder / "link").c_str());
    const auto file = PathMetadata::lstat(folder / "file");
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->isDirectory || file->isSymlink);
    EXPECT_EQ(file->linkCount, 2);
    EXPECT_TRUE(PathMetadata::lstat(folder / "link")->isSymlink);
    EXPECT_FALSE(PathMetadata::lstat((folder / "file").string() + std::string("\0x", 2)));
    EXPECT_FALSE(PathMetadata::lstat(folder / std::string(70'000, 'x')));
}

} // namespace
} // namespace tarnwell
