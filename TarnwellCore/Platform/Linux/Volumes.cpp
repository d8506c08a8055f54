#include "TarnwellCore/Platform/Volumes.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/Linux/BlockDevices.hpp"
#include "TarnwellCore/Platform/Linux/FileSystemIdentity.hpp"
#include "TarnwellCore/Platform/Linux/MountTable.hpp"
#include "TarnwellCore/Platform/TimeLimitedCalls.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>

namespace tarnwell {

namespace {

/// The device manager's names, read once for a list of volumes.
struct DeviceNames {
    std::map<dev_t, std::string> labels = deviceNames("/dev/disk/by-label");
    std::map<dev_t, std::string> uuids = deviceNames("/dev/disk/by-uuid");
};

std::int64_t byteCount(std::uint64_t blocks, std::uint64_t blockSize) {
    std::uint64_t bytes = 0;
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
    // File systems of unlimited size report as many blocks as the number holds.
    if (__builtin_mul_overflow(blocks, blockSize, &bytes))
        bytes = largest;
    return static_cast<std::int64_t>(std::min(bytes, largest));
}

/// What is found at a path, all of it at one moment.
struct Place {
    /// False only when nothing is mounted there, not when that cannot be told.
    bool isMountPoint = true;
    std::optional<struct statvfs> figures = {};
};

Place lookAt(const std::string& path) {
    // By a descriptor: were the path asked twice, a volume could go in between, and the second answer would
    // be that of the file system below.
    const int descriptor = withoutInterruption([&] { return ::open(path.c_str(), O_PATH | O_CLOEXEC); });
    if (descriptor < 0)
        return {.isMountPoint = errno != ENOENT && errno != ENOTDIR};
    Place place;
    struct statx status = {};
    if (::statx(descriptor, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, 0, &status) == 0)
        place.isMountPoint = (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0 ||
                             (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    struct statvfs figures = {};
    if (::fstatvfs(descriptor, &figures) == 0)
        place.figures = figures;
    ::close(descriptor);
    return place;
}

/// The same, of a path on this mount, in limited time.
Place lookAt(const std::string& path, const MountEntry& mount) {
    // Asking for the figures of an automatic mount would mount it.
    if (mount.type == "autofs")
        return {};
    if (!mount.mayHang())
        return lookAt(path);
    static auto& limitedCalls = *new TimeLimitedCalls<Place>; // for threads that outlive statics
    return limitedCalls.get(path, volumeAnswerLimit, [path] { return std::optional(lookAt(path)); })
        .value_or(Place());
}

std::optional<FileSystemStatistics> statisticsOf(const Place& place, const MountEntry& mount) {
    const auto& record = place.figures;
    if (!record)
        return std::nullopt;
    return FileSystemStatistics{byteCount(record->f_blocks, record->f_frsize),
                                byteCount(record->f_bavail, record->f_frsize), mount.type,
                                (record->f_flag & ST_RDONLY) != 0};
}

/// The block device that a mount lies on, if any.
std::optional<dev_t> deviceOf(const MountEntry& mount) {
    if (!mount.source.starts_with("/dev/"))
        return std::nullopt;
    struct stat status = {};
    if (::stat(mount.source.c_str(), &status) == 0 && S_ISBLK(status.st_mode))
        return status.st_rdev;
    // A container sees the mount but not the host's device file.
    if (!mount.mayHang() && ::stat(mount.path.c_str(), &status) == 0 && major(status.st_dev) != 0)
        return status.st_dev;
    return std::nullopt;
}

std::string lastComponent(const std::string& path) {
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string valueOr(const std::map<dev_t, std::string>& names, dev_t device, const std::string& otherwise) {
    const auto found = names.find(device);
    return found != names.end() ? found->second : otherwise;
}

/// Nothing when the volume has gone since it was listed.
std::optional<VolumeProperties> readProperties(const MountEntry& mount, const DeviceNames& names) {
    const Place place = lookAt(mount.path, mount);
    if (!place.isMountPoint && mount.path != "/") // a root of one's own need not be one
        return std::nullopt;
    VolumeProperties properties;
    properties.path = mount.path;
    properties.name = lastComponent(mount.path);
    properties.isRemovable = false;
    properties.isEjectable = false;
    properties.isRootFileSystem = mount.path == "/";
    properties.isReadOnly = mount.isReadOnly;
    properties.isLocal = mount.isLocal;
    properties.isBrowsable = mount.isBrowsable;
    properties.fileSystemType = mount.type;
    if (const auto statistics = statisticsOf(place, mount)) {
        properties.totalCapacity = statistics->total;
        properties.availableCapacity = statistics->available;
        properties.isReadOnly = statistics->isReadOnly;
    }
    const std::optional<dev_t> device = deviceOf(mount);
    if (!device)
        return properties;
    if (const auto facts = readBlockDevice(*device)) {
        properties.isInternal = !facts->isExternal;
        properties.isRemovable = facts->isRemovable;
        properties.isEjectable = facts->isRemovable || facts->isExternal;
    }
    std::string label = valueOr(names.labels, *device, "");
    std::string uuid = valueOr(names.uuids, *device, "");
    if ((label.empty() || uuid.empty()) && mount.isFolder && !mount.mayHang()) {
        const FileSystemIdentity identity = readIdentity(mount.path);
        if (label.empty())
            label = identity.label;
        if (uuid.empty())
            uuid = identity.uuid;
    }
    if (!label.empty())
        properties.name = label;
    if (!uuid.empty())
        properties.uuid = uuid;
    return properties;
}

/// The path, absolute and free of links; nothing when there is no such item.
std::optional<std::string> resolvedPath(const std::vector<MountEntry>& mounts, const std::string& path) {
    const auto resolve = [path]() -> std::optional<std::string> {
        const std::unique_ptr<char, decltype(&std::free)> text(::realpath(path.c_str(), nullptr), &std::free);
        if (text)
            return std::string(text.get());
        return errno == ENAMETOOLONG ? std::optional(resolveLinks(path)) : std::nullopt;
    };
    static auto& limitedCalls = *new TimeLimitedCalls<std::string>; // for threads that outlive statics
    const MountEntry* const mount = mountHolding(mounts, path);
    return mount != nullptr && mount->mayHang() ? limitedCalls.get(path, volumeAnswerLimit, resolve)
                                                : resolve();
}

} // namespace

std::vector<VolumeProperties> mountedVolumeProperties(bool includeHidden) {
    const DeviceNames names;
    std::vector<VolumeProperties> volumes;
    for (const MountEntry& mount : readMountTable()) {
        if (!includeHidden && !mount.isBrowsable)
            continue;
        if (auto properties = readProperties(mount, names))
            volumes.push_back(*std::move(properties));
    }
    return volumes;
}

std::optional<VolumeProperties> volumeProperties(const std::string& path) {
    const std::vector<MountEntry> mounts = readMountTable();
    const MountEntry* mount = mountAt(mounts, path);
    if (mount == nullptr) {
        const auto target = resolvedPath(mounts, path);
        mount = target ? mountAt(mounts, *target) : nullptr;
    }
    if (mount == nullptr)
        return std::nullopt;
    return readProperties(*mount, DeviceNames());
}

std::optional<std::string> mountPointContaining(const std::string& path) {
    const std::vector<MountEntry> mounts = readMountTable();
    if (mountAt(mounts, path) != nullptr)
        return path;
    const auto target = resolvedPath(mounts, path);
    const MountEntry* const mount = target ? mountHolding(mounts, *target) : nullptr;
    if (mount == nullptr)
        return std::nullopt;
    return mount->path;
}

std::optional<FileSystemStatistics> fileSystemStatistics(const std::string& path) {
    const std::vector<MountEntry> mounts = readMountTable();
    if (const MountEntry* const mount = mountAt(mounts, path))
        return statisticsOf(lookAt(path, *mount), *mount);
    const auto target = resolvedPath(mounts, path);
    if (!target)
        return std::nullopt;
    // Without a table of mounts the figures are still good.
    const MountEntry* const held = mountHolding(mounts, *target);
    const MountEntry mount = held != nullptr ? *held : MountEntry();
    return statisticsOf(lookAt(*target, mount), mount);
}

bool mayNeverAnswer(const std::string& path) {
    const std::vector<MountEntry> mounts = readMountTable();
    if (std::ranges::none_of(mounts, &MountEntry::mayHang))
        return false;
    const MountEntry* const asWritten = mountHolding(mounts, path);
    if (asWritten != nullptr && asWritten->mayHang())
        return true;
    // A link may lead there all the same. A disk that has to start first takes longer than a server.
    constexpr auto limit = 10 * volumeAnswerLimit;
    static auto& limitedCalls = *new TimeLimitedCalls<std::string>; // for threads that outlive statics
    const auto target = limitedCalls.get(path, limit, [path] { return std::optional(resolveLinks(path)); });
    const MountEntry* const held = target ? mountHolding(mounts, *target) : nullptr;
    return !target || (held != nullptr && held->mayHang());
}

bool holdsWholeFileSystem(const std::string& path) {
    const std::vector<MountEntry> mounts = readMountTable();
    const MountEntry* const mount = mountAt(mounts, path);
    // A mount on one of its folders hides what lies there.
    const std::string below = path.ends_with('/') ? path : path + "/";
    return mount != nullptr && mount->root == "/" &&
           std::ranges::none_of(mounts, [&](const MountEntry& other) {
               return &other != mount && other.path.starts_with(below);
           });
}

} // namespace tarnwell
