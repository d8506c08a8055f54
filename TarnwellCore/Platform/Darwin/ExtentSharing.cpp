#include "TarnwellCore/Platform/ExtentSharing.hpp"

#include "TarnwellCore/Platform/BlockLayout.hpp"
#include "TarnwellCore/Platform/CloneReplacement.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"

#include <copyfile.h>
#include <fcntl.h>
#include <sys/acl.h>
#include <sys/attr.h>
#include <sys/clonefile.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace tarnwell {

namespace {

constexpr auto immutableFlags = UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND;

std::vector<std::string> attributeNames(int file) {
    std::vector<std::string> names;
    const ssize_t room = ::flistxattr(file, nullptr, 0, 0);
    if (room <= 0)
        return names;
    std::string list(static_cast<std::size_t>(room), '\0');
    const ssize_t length = ::flistxattr(file, list.data(), list.size(), 0);
    list.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    for (std::size_t start = 0; start < list.size(); start += names.back().size() + 1)
        names.emplace_back(list.c_str() + start);
    return names;
}

/// A clone comes with the attributes of what it was cloned from.
int removeOtherAttributes(int from, int to) {
    const std::vector<std::string> wanted = attributeNames(from);
    for (const std::string& name : attributeNames(to))
        if (std::ranges::find(wanted, name) == wanted.end() && ::fremovexattr(to, name.c_str(), 0) != 0 &&
            errno != ENOATTR)
            return -1;
    return 0;
}

int copyCreationTime(int from, int to) {
    attrlist request = {};
    request.bitmapcount = ATTR_BIT_MAP_COUNT;
    request.commonattr = ATTR_CMN_CRTIME;
    struct __attribute__((packed)) {
        std::uint32_t length;
        struct timespec time;
    } answer = {};
    if (::fgetattrlist(from, &request, &answer, sizeof answer, 0) != 0)
        return -1;
    struct timespec time = answer.time;
    return ::fsetattrlist(to, &request, &time, sizeof time, 0);
}

/// Also none at all: the clone may have got one from its folder.
int copyAccessControlList(int from, int to) {
    acl_t list = ::acl_get_fd_np(from, ACL_TYPE_EXTENDED);
    if (list == nullptr && errno == ENOENT)
        list = ::acl_init(1);
    if (list == nullptr)
        return -1;
    const int result = ::acl_set_fd_np(to, list, ACL_TYPE_EXTENDED);
    const int error = errno;
    ::acl_free(list);
    errno = error;
    return result;
}

int copyTo(int from, int to, const struct stat& status) {
    if (::fcopyfile(from, to, nullptr, COPYFILE_XATTR) != 0 || removeOtherAttributes(from, to) != 0 ||
        ::fchown(to, status.st_uid, status.st_gid) != 0 || ::fchmod(to, status.st_mode & 07777) != 0 ||
        copyCreationTime(from, to) != 0)
        return -1;
    const struct timespec times[2] = {status.st_atimespec, status.st_mtimespec};
    // What only the system sets among the flags belongs to the contents. The list may forbid all that stands
    // before it.
    if (::futimens(to, times) != 0 || ::fchflags(to, status.st_flags & UF_SETTABLE) != 0)
        return -1;
    return copyAccessControlList(from, to);
}

int copyMetadata(int from, int folder, const char* name) {
    struct stat status = {};
    if (::fstat(from, &status) != 0)
        return -1;
    // A clone may not be readable to its owner as it is.
    if (::fchmodat(folder, name, 0600, AT_SYMLINK_NOFOLLOW) != 0)
        return -1;
    const int to = withoutInterruption(
        [&] { return ::openat(folder, name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); });
    if (to < 0)
        return -1;
    const int result = copyTo(from, to, status);
    const int error = errno;
    ::close(to);
    errno = error;
    return result;
}

const CloneCalls& cloneCalls() {
    static const CloneCalls calls{
        .clone = [](int file, int folder,
                    const char* name) { return ::fclonefileat(file, folder, name, CLONE_NOOWNERCOPY); },
        .copyMetadata = copyMetadata,
        .exchange = [](int folder, const char* one,
                       const char* other) { return ::renameatx_np(folder, one, folder, other, RENAME_SWAP); },
        .remove = [](int folder, const char* name) { return ::unlinkat(folder, name, 0); },
    };
    return calls;
}

/// Bytes that nobody shares; all of them when the file system does not tell.
std::int64_t privateBytes(int file, const struct stat& status) {
    attrlist request = {};
    request.bitmapcount = ATTR_BIT_MAP_COUNT;
    request.commonattr = ATTR_CMN_RETURNED_ATTRS;
    request.forkattr = ATTR_CMNEXT_PRIVATESIZE;
    struct __attribute__((packed)) {
        std::uint32_t length;
        attribute_set_t returned;
        std::int64_t privateSize;
    } answer = {};
    if (::fgetattrlist(file, &request, &answer, sizeof answer, FSOPT_ATTR_CMN_EXTENDED) != 0 ||
        answer.length < sizeof answer || (answer.returned.forkattr & ATTR_CMNEXT_PRIVATESIZE) == 0)
        return status.st_blocks * 512;
    return std::max<std::int64_t>(answer.privateSize, 0);
}

} // namespace

std::expected<std::int64_t, SharingFault> shareExtents(const SharingFile& first, const SharingFile& further,
                                                       const std::function<bool()>& isCancelled) {
    struct stat status = {};
    if (::fstat(further.file, &status) != 0)
        return std::unexpected(SharingFault{SharingFault::Kind::failed, errno});
    if ((status.st_flags & immutableFlags) != 0)
        return std::unexpected(SharingFault{SharingFault::Kind::immutable});
    if (first.version.device != further.version.device)
        return std::unexpected(SharingFault{SharingFault::Kind::otherFileSystem});
    // Compressed contents lie where a clone's do not: in an attribute, which is not copied apart from them.
    struct stat firstStatus = {};
    if (::fstat(first.file, &firstStatus) != 0 ||
        ((firstStatus.st_flags | status.st_flags) & UF_COMPRESSED) != 0)
        return std::unexpected(SharingFault{SharingFault::Kind::unsupported});
    const auto layout = layoutOfSharedBlocks(first.file);
    if (layout && layout == layoutOfSharedBlocks(further.file) && requireVersion(first.file, first.version) &&
        requireVersion(further.file, further.version))
        return 0;
    return replaceByClone(first, further, privateBytes(further.file, status), cloneCalls(), isCancelled);
}

} // namespace tarnwell
