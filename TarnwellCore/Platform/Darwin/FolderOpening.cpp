#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <fcntl.h>

namespace tarnwell::FolderOpeningDetail {

int openForTraversal(int folder, const char* relativePath) {
    return ::openat(folder, relativePath, O_SEARCH | O_DIRECTORY | O_CLOEXEC);
}

int openShortPathBelow(int folder, const char* relativePath) {
    return ::openat(folder, relativePath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW_ANY | O_CLOEXEC);
}

} // namespace tarnwell::FolderOpeningDetail
