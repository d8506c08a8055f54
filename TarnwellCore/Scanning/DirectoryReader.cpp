#include "TarnwellCore/Scanning/DirectoryReader.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

namespace tarnwell {

DirectoryReader::ReadError::ReadError(int errorNumber)
    : std::runtime_error(std::generic_category().message(errorNumber)), errorNumber_(errorNumber) {}

DirectoryReader::DirectoryReader(const DirectoryCalls& calls, bool keepsHeldSpace)
    : calls_(calls),
      buffer_(std::make_unique_for_overwrite<std::byte[]>(bufferSize)),
      bulk_(calls, keepsHeldSpace) {}

int DirectoryReader::openDirectory(const std::string& path) {
    const int folder = openFolder(path);
    if (folder < 0)
        throw ReadError(errno);
    return folder;
}

bool DirectoryReader::readEntries(int folder, std::int32_t deviceID, const EntryConsumer& consumer,
                                  Descriptor state, const RecordSource* source) {
    batch_.begin(consumer);
    isOneByOne_ = false;
    if (unsupportedDevices_.empty() || !unsupportedDevices_.contains(deviceID)) {
        ++bulkAttemptCount_;
        switch (bulk_.read(folder, deviceID, state == Descriptor::fresh, {buffer_.get(), bufferSize}, batch_,
                           source)) {
        case BulkReadOutcome::success:
            return true;
        case BulkReadOutcome::failure:
            return false;
        case BulkReadOutcome::unsupported:
            break;
        }
        unsupportedDevices_.insert(deviceID);
        // A file system that changes its mind within a folder: what was handed on must not come twice.
        if (batch_.hasHandedOn())
            return false;
        batch_.removeAll();
    }
    ++posixFallbackCount_;
    isOneByOne_ = true;
    return readOneByOne(folder);
}

bool DirectoryReader::helpToRead(int folder, std::int32_t deviceID, const EntryConsumer& consumer,
                                 const RecordSource& source) {
    batch_.begin(consumer);
    isOneByOne_ = false;
    return bulk_.read(folder, deviceID, true, {buffer_.get(), bufferSize}, batch_, &source) ==
           BulkReadOutcome::success;
}

bool DirectoryReader::readOneByOne(int folder) {
    const int copy = ::fcntl(folder, F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        return false;
    DIR* stream = ::fdopendir(copy);
    if (stream == nullptr) {
        const int error = errno;
        ::close(copy);
        errno = error;
        return false;
    }
    ::rewinddir(stream);
    for (;;) {
        errno = 0;
        const dirent* next = ::readdir(stream);
        if (next == nullptr && errno == EINTR)
            continue;
        if (next == nullptr)
            break;
        const std::string_view name(next->d_name);
        if (name.empty() || name == "." || name == "..")
            continue;
        struct stat status = {};
        RawDirectoryEntry& entry = batch_.add();
        if (withoutInterruption([&] { return calls_.entryStatus(folder, next->d_name, &status); }) == 0)
            entry = entryFromStatus(status);
        else
            entry.errorCode = static_cast<std::uint32_t>(errno);
        entry.name = name;
        // One by one: the name is gone with the next call.
        const bool isMoreWanted = batch_.handOn();
        errno = 0;
        if (!isMoreWanted)
            break;
    }
    const int error = errno;
    ::closedir(stream);
    errno = error;
    return error == 0;
}

} // namespace tarnwell
