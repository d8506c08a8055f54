#include "TarnwellCore/Scanning/DirectoryReader.hpp"

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

DirectoryReader::DirectoryReader(const DirectoryCalls& calls)
    : calls_(calls), buffer_(std::make_unique_for_overwrite<std::byte[]>(bufferSize)), bulk_(calls) {}

int DirectoryReader::openDirectory(const std::string& path) {
    const int folder = openFolder(path);
    if (folder < 0)
        throw ReadError(errno);
    return folder;
}

bool DirectoryReader::readEntries(int folder, std::int32_t deviceID, std::vector<RawDirectoryEntry>& entries,
                                  Descriptor state) {
    entries.clear();
    names_.clear();
    if (unsupportedDevices_.empty() || !unsupportedDevices_.contains(deviceID)) {
        ++bulkAttemptCount_;
        switch (bulk_.read(folder, deviceID, state == Descriptor::fresh, {buffer_.get(), bufferSize}, names_,
                           entries)) {
        case BulkReadOutcome::success:
            return true;
        case BulkReadOutcome::failure:
            return false;
        case BulkReadOutcome::unsupported:
            break;
        }
        unsupportedDevices_.insert(deviceID);
        entries.clear();
        names_.clear();
    }
    ++posixFallbackCount_;
    return readOneByOne(folder, entries);
}

bool DirectoryReader::readOneByOne(int folder, std::vector<RawDirectoryEntry>& entries) {
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
        if (next == nullptr)
            break;
        const std::string_view name(next->d_name);
        if (name.empty() || name == "." || name == "..")
            continue;
        struct stat status = {};
        RawDirectoryEntry& entry = entries.emplace_back();
        if (calls_.entryStatus(folder, next->d_name, &status) == 0)
            entry = entryFromStatus(status);
        else
            entry.errorCode = static_cast<std::uint32_t>(errno);
        entry.name = names_.add(name);
    }
    const int error = errno;
    ::closedir(stream);
    errno = error;
    return error == 0;
}

} // namespace tarnwell
