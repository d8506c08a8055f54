#include "TarnwellCore/Platform/PrivateFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnwell {

void makePrivate(const std::filesystem::path& path, mode_t kind, nlink_t names) {
    constexpr mode_t others = 077;
    struct stat status = {};
    const auto isToChange = [&] {
        return (status.st_mode & S_IFMT) == kind && status.st_uid == ::geteuid() &&
               (kind == S_IFDIR || status.st_nlink <= names) && (status.st_mode & others) != 0;
    };
    // To open a device may do something.
    if (::lstat(path.c_str(), &status) != 0 || !isToChange())
        return;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (descriptor == -1)
        return;
    if (::fstat(descriptor, &status) == 0 && isToChange())
        ::fchmod(descriptor, status.st_mode & 0700);
    ::close(descriptor);
}

} // namespace tarnwell
