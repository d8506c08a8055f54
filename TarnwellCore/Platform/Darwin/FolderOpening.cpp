#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <fcntl.h>

namespace tarnwell {

// The kernel cannot be told to stay on a device, and asking for the device of every opened folder would cost
// a call each and be misled by firmlinks, which lead to another one. So what gets mounted on a folder between
// the reading of its parent and its own is read.

int openSubfolder(int folder, const char* name, const std::int32_t* /*device*/) {
    return ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int openSubfolderForTraversal(int folder, const char* name) {
    return ::openat(folder, name, O_SEARCH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int FolderOpeningDetail::openForTraversal(int folder, const char* relativePath) {
    return ::openat(folder, relativePath, O_SEARCH | O_DIRECTORY | O_CLOEXEC);
}

int FolderOpeningDetail::openShortPathBelow(int folder, const char* relativePath,
                                            const std::int32_t* /*device*/) {
    return ::openat(folder, relativePath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW_ANY | O_CLOEXEC);
}

} // namespace tarnwell
