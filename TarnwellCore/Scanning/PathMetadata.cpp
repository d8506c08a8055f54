#include "TarnwellCore/Scanning/PathMetadata.hpp"

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace tarnwell {

namespace {

bool readStatus(const std::string& path, struct stat& status) {
    const auto readAt = [&](int folder, const std::string& name) {
        return withoutInterruption(
                   [&] { return DirectoryCalls::live().entryStatus(folder, name.c_str(), &status); }) == 0;
    };
    if (readAt(AT_FDCWD, path))
        return true;
    if (errno != ENAMETOOLONG)
        return false;
    std::string lastComponent;
    const int parent = openParentOfLongPath(path, lastComponent);
    if (parent < 0)
        return false;
    const bool isRead = readAt(parent, lastComponent);
    ::close(parent);
    return isRead;
}

} // namespace

std::optional<PathMetadata> PathMetadata::lstat(const std::string& path) {
    struct stat status = {};
    if (path.find('\0') != std::string::npos || !readStatus(path, status))
        return std::nullopt;
    const RawDirectoryEntry entry = entryFromStatus(status);
    PathMetadata metadata;
    metadata.isDirectory = entry.objectType == VnodeType::directory;
    metadata.isSymlink = entry.objectType == VnodeType::symbolicLink;
    metadata.isDataless = (entry.finderFlags & datalessFileFlag) != 0;
    metadata.logicalSize = entry.logicalSize;
    metadata.allocatedSize = entry.allocatedSize;
    metadata.deviceID = entry.deviceID;
    metadata.fileID = entry.fileID;
    metadata.linkCount = static_cast<std::uint16_t>(
        std::min<std::uint32_t>(entry.linkCount, std::numeric_limits<std::uint16_t>::max()));
    metadata.modificationDate = dateFromReferenceSeconds(entry.modificationSeconds);
    return metadata;
}

} // namespace tarnwell
