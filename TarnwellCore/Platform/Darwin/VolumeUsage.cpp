#include "TarnwellCore/Platform/VolumeUsage.hpp"

#include "TarnwellCore/Platform/Volumes.hpp"

#include <sys/attr.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

namespace tarnwell {

namespace {

/// The bytes of one volume of several that share their free space; for others those that are not free.
std::optional<std::int64_t> usedBytes(const std::string& path) {
    struct Answer {
        std::uint32_t length;
        off_t used;
    } __attribute__((packed, aligned(4)));
    struct attrlist request = {};
    request.bitmapcount = ATTR_BIT_MAP_COUNT;
    request.volattr = ATTR_VOL_INFO | ATTR_VOL_SPACEUSED;
    Answer answer = {};
    if (::getattrlist(path.c_str(), &request, &answer, sizeof answer, 0) == 0 &&
        answer.length >= sizeof answer && answer.used >= 0)
        return answer.used;
    struct statfs figures = {};
    std::uint64_t bytes = 0;
    if (::statfs(path.c_str(), &figures) != 0 || figures.f_bfree > figures.f_blocks ||
        __builtin_mul_overflow(figures.f_blocks - figures.f_bfree, std::uint64_t{figures.f_bsize}, &bytes) ||
        bytes > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return std::nullopt;
    return static_cast<std::int64_t>(bytes);
}

std::vector<struct statfs> mountTable() {
    std::vector<struct statfs> mounts;
    for (int room = ::getfsstat(nullptr, 0, MNT_NOWAIT); room > 0;) {
        mounts.resize(static_cast<std::size_t>(room) + 1);
        const int count =
            ::getfsstat(mounts.data(), static_cast<int>(mounts.size() * sizeof(struct statfs)), MNT_NOWAIT);
        mounts.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        if (count <= room)
            break;
        room = count * 2; // more were mounted in between
    }
    return mounts;
}

const struct statfs* mountAt(const std::vector<struct statfs>& mounts, std::string_view path) {
    const auto found =
        std::ranges::find_if(mounts, [&](const struct statfs& mount) { return mount.f_mntonname == path; });
    return found != mounts.end() ? &*found : nullptr;
}

} // namespace

std::optional<VolumeUsage> volumeUsage(const std::string& path) {
    const auto mountPoint = mountPointContaining(path);
    const auto used = mountPoint ? usedBytes(*mountPoint) : std::nullopt;
    if (!used)
        return std::nullopt;
    const std::vector<struct statfs> mounts = mountTable();
    const struct statfs* const mount = mountAt(mounts, *mountPoint);
    VolumeUsage usage{.used = *used, .isWhole = mount != nullptr};
    // The size of a snapshot is told to nobody; that a file system has none is told by its type.
    if (mount != nullptr && std::string_view(mount->f_fstypename) != "apfs")
        usage.snapshots = 0;
    // A start volume's own files and those of its users are two volumes that firmlinks make one.
    const std::string data = "/System/Volumes/Data";
    if (*mountPoint == "/" && mountAt(mounts, data) != nullptr) {
        const auto usedByData = usedBytes(data);
        if (!usedByData || __builtin_add_overflow(usage.used, *usedByData, &usage.used))
            return std::nullopt;
    }
    const auto properties = volumeProperties(*mountPoint);
    if (properties && properties->availableForImportantUsage && properties->availableCapacity)
        usage.purgeable = std::max<std::int64_t>(0, *properties->availableForImportantUsage -
                                                        *properties->availableCapacity);
    return usage;
}

bool isPartOfFileSystem(const std::string& path, const std::string& volumePath) {
    const std::vector<struct statfs> mounts = mountTable();
    const struct statfs* const mount = mountAt(mounts, path);
    const struct statfs* const volume = mountAt(mounts, volumePath);
    return mount != nullptr && volume != nullptr &&
           std::strcmp(mount->f_mntfromname, volume->f_mntfromname) == 0;
}

} // namespace tarnwell
