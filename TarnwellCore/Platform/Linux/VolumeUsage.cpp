#include "TarnwellCore/Platform/VolumeUsage.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/Linux/MountTable.hpp"
#include "TarnwellCore/Platform/TimeLimitedCalls.hpp"
#include "TarnwellCore/Platform/Volumes.hpp"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

namespace tarnwell {

namespace {

// Those that keep no snapshots of their own. What lies below a file system may: nobody tells.
constexpr auto typesWithoutSnapshots = std::to_array<std::string_view>(
    {"ext2", "ext3", "ext4", "xfs", "f2fs", "jfs", "reiserfs", "tmpfs", "vfat", "msdos", "exfat", "hfs",
     "hfsplus", "iso9660", "udf", "squashfs", "erofs"});

std::optional<std::int64_t> usedBytes(const std::string& path) {
    const int folder = withoutInterruption([&] { return ::open(path.c_str(), O_PATH | O_CLOEXEC); });
    if (folder < 0)
        return std::nullopt;
    struct statvfs figures = {};
    const bool isKnown = ::fstatvfs(folder, &figures) == 0;
    ::close(folder);
    std::uint64_t bytes = 0;
    if (!isKnown || figures.f_bfree > figures.f_blocks ||
        __builtin_mul_overflow(figures.f_blocks - figures.f_bfree, figures.f_frsize, &bytes) ||
        bytes > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return std::nullopt;
    return static_cast<std::int64_t>(bytes);
}

} // namespace

std::optional<VolumeUsage> volumeUsage(const std::string& path) {
    const auto mountPoint = mountPointContaining(path);
    if (!mountPoint)
        return std::nullopt;
    const std::vector<MountEntry> mounts = readMountTable();
    const MountEntry* const mount = mountAt(mounts, *mountPoint);
    if (mount == nullptr || mount->type == "autofs") // asking would mount it
        return std::nullopt;
    static auto& limitedCalls = *new TimeLimitedCalls<std::int64_t>; // for threads that outlive statics
    const auto used = mount->mayHang() ? limitedCalls.get(mount->path, volumeAnswerLimit,
                                                          [path = mount->path] { return usedBytes(path); })
                                       : usedBytes(mount->path);
    if (!used)
        return std::nullopt;
    VolumeUsage usage{.used = *used, .purgeable = 0, .isWhole = mount->root == "/"};
    if (std::ranges::find(typesWithoutSnapshots, mount->type) != typesWithoutSnapshots.end())
        usage.snapshots = 0;
    return usage;
}

bool isPartOfFileSystem(const std::string& path, const std::string& volumePath) {
    const std::vector<MountEntry> mounts = readMountTable();
    const MountEntry* const mount = mountAt(mounts, path);
    if (mount == nullptr)
        return true; // a subvolume: the mount that holds it shows it
    const MountEntry* const volume = mountAt(mounts, volumePath);
    return volume != nullptr && mount->type == volume->type && mount->source == volume->source &&
           mount->source.starts_with('/');
}

} // namespace tarnwell
