#include "TarnwellCore/Platform/FolderOpening.hpp"

#include "TarnwellCore/Platform/FileStatus.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tarnwell {

namespace {

/// Gives the descriptor of an open folder back, unless the folder is not on the wanted device: then it closes
/// it and returns -1 and EXDEV. The kernel cannot be told to stay on one.
int requireDevice(int folder, const std::int32_t* device) {
    if (folder < 0 || device == nullptr)
        return folder;
    struct stat status = {};
    const bool isKnown = ::fstat(folder, &status) == 0;
    if (isKnown && entryFromStatus(status).deviceID == *device)
        return folder;
    const int error = isKnown ? EXDEV : errno;
    ::close(folder);
    errno = error;
    return -1;
}

} // namespace

int openSubfolder(int folder, const char* name, const std::int32_t* device) {
    return requireDevice(::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC), device);
}

std::int32_t deviceOfOpened(int folder, std::int32_t listed) {
    struct stat status = {};
    return ::fstat(folder, &status) == 0 ? entryFromStatus(status).deviceID : listed;
}

int openSubfolderForTraversal(int folder, const char* name) {
    return ::openat(folder, name, O_SEARCH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int FolderOpeningDetail::openForTraversal(int folder, const char* relativePath) {
    return ::openat(folder, relativePath, O_SEARCH | O_DIRECTORY | O_CLOEXEC);
}

int FolderOpeningDetail::openShortPathBelow(int folder, const char* relativePath,
                                            const std::int32_t* device) {
    return requireDevice(::openat(folder, relativePath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW_ANY | O_CLOEXEC),
                         device);
}

} // namespace tarnwell
