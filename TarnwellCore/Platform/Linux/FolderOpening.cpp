#include "TarnwellCore/Platform/FolderOpening.hpp"

#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/Linux/LinuxFileTypes.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string_view>

namespace tarnwell {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// Whether `openat2` turned out not to be there: before Linux 5.6, or forbidden by a container.
std::atomic<bool> isOpenat2Missing = false;

/// `openat2`, or ENOSYS.
int openWithoutLinks(int folder, const char* relativePath, std::uint64_t restrictions) {
    if (isOpenat2Missing.load(std::memory_order_relaxed)) {
        errno = ENOSYS;
        return -1;
    }
    struct open_how how = {};
    how.flags = folderFlags;
    how.resolve = RESOLVE_NO_SYMLINKS | restrictions;
    return static_cast<int>(::syscall(SYS_openat2, folder, relativePath, &how, sizeof how));
}

/// Whether the last `openWithoutLinks` says that it is not there, rather than that the folder cannot be
/// opened.
bool isRefused(int error) {
    return error == ENOSYS || error == EPERM;
}

/// Remembers a refusal, given what the plain way came to.
int afterRefusal(int error, int opened) {
    if (error == ENOSYS || opened >= 0)
        isOpenat2Missing.store(true, std::memory_order_relaxed);
    return opened;
}

/// Gives the descriptor of an open folder back, unless the folder is not on the device: then it closes it and
/// returns -1 and EXDEV.
int requireDevice(int folder, std::int32_t device) {
    if (folder < 0)
        return -1;
    struct stat status = {};
    const bool isKnown = ::fstat(folder, &status) == 0;
    if (isKnown && entryFromStatus(status).deviceID == device)
        return folder;
    const int error = isKnown ? EXDEV : errno;
    ::close(folder);
    errno = error;
    return -1;
}

/// As `requireDevice`, for a folder that is on the device as far as mounts tell. A subvolume is no mount, but
/// has a device number of its own; like its file system's, that belongs to no block device, so that others
/// need no second look.
int ruleOutSubvolume(int opened, std::int32_t device) {
    return majorFromDeviceID(device) == 0 ? requireDevice(opened, device) : opened;
}

/// Whether a mount is there already, rather than one that would come by opening.
bool isMounted(int folder, const char* name) {
    struct statx status = {};
    return ::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// Where there is no `openat2`: one component after the other, none of which may be a link.
int openStepwise(int folder, std::string_view path) {
    std::string component;
    component.reserve(path.size()); // while no folder is open that would stay so were there no memory
    int current = folder;
    while (!path.empty()) {
        component = path.substr(0, path.find('/'));
        path.remove_prefix(component.size());
        while (path.starts_with('/'))
            path.remove_prefix(1);
        const int flags = path.empty() ? folderFlags : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        const int next = ::openat(current, component.c_str(), flags);
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

int openSubfolder(int folder, const char* name, const std::int32_t* device) {
    if (device == nullptr)
        return ::openat(folder, name, folderFlags);
    // A single name leads nowhere but below: RESOLVE_BENEATH would only take a lock that all threads share.
    const int opened = openWithoutLinks(folder, name, RESOLVE_NO_XDEV);
    if (opened >= 0)
        return ruleOutSubvolume(opened, *device);
    const int error = errno;
    if (isRefused(error))
        return requireDevice(afterRefusal(error, ::openat(folder, name, folderFlags)), *device);
    // A folder of the same device may be mounted there: that one belongs to the scan.
    if (error == EXDEV && isMounted(folder, name))
        return requireDevice(::openat(folder, name, folderFlags), *device);
    errno = error;
    return -1;
}

std::int32_t deviceOfOpened(int /*folder*/, std::int32_t listed) {
    return listed;
}

int openSubfolderForTraversal(int folder, const char* name) {
    return ::openat(folder, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int FolderOpeningDetail::openForTraversal(int folder, const char* relativePath) {
    return ::openat(folder, relativePath, O_PATH | O_DIRECTORY | O_CLOEXEC);
}

int FolderOpeningDetail::openShortPathBelow(int folder, const char* relativePath,
                                            const std::int32_t* device) {
    const std::uint64_t noOtherDevice = device != nullptr ? RESOLVE_NO_XDEV : 0;
    const int opened = openWithoutLinks(folder, relativePath, RESOLVE_BENEATH | noOtherDevice);
    if (opened >= 0)
        return device != nullptr ? ruleOutSubvolume(opened, *device) : opened;
    const int error = errno;
    if (isRefused(error)) {
        const int found = afterRefusal(error, openStepwise(folder, relativePath));
        return device != nullptr ? requireDevice(found, *device) : found;
    }
    // So may they on the way.
    if (error == EXDEV && device != nullptr)
        return requireDevice(openWithoutLinks(folder, relativePath, RESOLVE_BENEATH), *device);
    return -1;
}

} // namespace tarnwell
