#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace tarnwell::FolderOpeningDetail {

namespace {

/// For kernels before 5.6: one component after the other, none of which may be a link.
int openStepwise(int folder, std::string_view path) {
    int current = folder;
    while (!path.empty()) {
        const std::string component(path.substr(0, path.find('/')));
        path.remove_prefix(component.size());
        while (path.starts_with('/'))
            path.remove_prefix(1);
        const int access = path.empty() ? O_RDONLY : O_PATH;
        const int next = ::openat(current, component.c_str(), access | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        const int error = errno;
        if (current != folder)
            ::close(current);
        errno = error;
        if (next < 0)
            return -1;
        current = next;
    }
    return current;
}

} // namespace

int openForTraversal(int folder, const char* relativePath) {
    return ::openat(folder, relativePath, O_PATH | O_DIRECTORY | O_CLOEXEC);
}

int openShortPathBelow(int folder, const char* relativePath) {
    struct open_how how = {};
    how.flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long descriptor = ::syscall(SYS_openat2, folder, relativePath, &how, sizeof how);
    if (descriptor >= 0 || (errno != ENOSYS && errno != EPERM))
        return static_cast<int>(descriptor);
    return openStepwise(folder, relativePath);
}

} // namespace tarnwell::FolderOpeningDetail
