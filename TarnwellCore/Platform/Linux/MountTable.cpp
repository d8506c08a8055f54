#include "TarnwellCore/Platform/Linux/MountTable.hpp"

#include "TarnwellCore/Platform/PathNesting.hpp"

#include <fcntl.h>
#include <gio/gunixmounts.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <map>
#include <set>
#include <utility>

namespace tarnwell {

namespace {

/// Sorted. Windows into the kernel, memory, and layers over file systems that are listed themselves.
constexpr auto pseudoTypes = std::to_array<std::string_view>({
    "autofs",     "bdev",        "binder",  "binfmt_misc", "bpf",      "cgroup",   "cgroup2",
    "configfs",   "cpuset",      "debugfs", "devpts",      "devtmpfs", "efivarfs", "fuse.gvfsd-fuse",
    "fuse.lxcfs", "fuse.portal", "fusectl", "hugetlbfs",   "mqueue",   "nfsd",     "nsfs",
    "overlay",    "proc",        "pstore",  "ramfs",       "resctrl",  "rootfs",   "rpc_pipefs",
    "securityfs", "selinuxfs",   "smackfs", "sysfs",       "tmpfs",    "tracefs",  "usbfs",
});
static_assert(std::ranges::is_sorted(pseudoTypes));

/// Sorted.
constexpr auto networkTypes = std::to_array<std::string_view>({
    "9p",    "afpfs",  "afs",   "beegfs",  "ceph",      "cifs",   "coda",   "curlftpfs",
    "davfs", "ftp",    "ftpfs", "gcsfuse", "glusterfs", "lustre", "ncpfs",  "nfs",
    "nfs4",  "rclone", "s3fs",  "smb3",    "smbfs",     "sshfs",  "webdav",
});
static_assert(std::ranges::is_sorted(networkTypes));

/// By the kernel's numbers (<linux/magic.h> lacks some): what a root may lie on.
constexpr auto rootTypes = std::to_array<std::pair<std::uint32_t, const char*>>({
    {0xEF53, "ext4"},
    {0x9123683E, "btrfs"},
    {0x58465342, "xfs"},
    {0xCA451A4E, "bcachefs"},
    {0xF2F52010, "f2fs"},
    {0x2FC12FC1, "zfs"},
    {0x794C7630, "overlay"},
    {0x01021994, "tmpfs"},
    {0x858458F6, "ramfs"},
    {0x73717368, "squashfs"},
    {0x6969, "nfs"},
    {0x01021997, "9p"},
    {0x65735546, "fuse"},
});

/// "/" where the table has none: with another root than the rest of the machine has, or without /proc.
MountEntry unlistedRoot() {
    MountEntry root;
    root.path = root.root = "/";
    struct statfs status = {};
    if (::statfs("/", &status) == 0) {
        const auto magic = static_cast<std::uint32_t>(status.f_type);
        const auto* type = std::ranges::find(rootTypes, magic, [](const auto& each) { return each.first; });
        if (type != rootTypes.end())
            root.type = type->second;
        root.isReadOnly = (status.f_flags & ST_RDONLY) != 0;
    }
    root.isLocal = !isNetworkMount(root.type, root.source);
    return root;
}

std::string textOrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

bool hasOption(std::string_view options, std::string_view wanted) {
    for (std::size_t start = 0; start <= options.size();) {
        const std::size_t end = std::min(options.find(',', start), options.size());
        if (options.substr(start, end - start) == wanted)
            return true;
        start = end + 1;
    }
    return false;
}

/// A device may be mounted in several places, as a whole or in part; they share one free space. The root
/// stands for them before others, a mount of the whole before one of a part, otherwise the first.
bool standsForDeviceBefore(const MountEntry& left, const MountEntry& right) {
    const auto rank = [](const MountEntry& mount) { return std::pair(mount.path != "/", mount.root != "/"); };
    return rank(left) < rank(right);
}

/// Looks at the mount point; false when something else stands where this was mounted.
bool inspect(MountEntry& mount) {
    if (mount.mayHang())
        return true;
    struct statx status = {};
    if (::statx(AT_FDCWD, mount.path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC,
                STATX_TYPE, &status) != 0)
        return errno != ENOENT && errno != ENOTDIR; // to be forbidden a look is not to be gone
    mount.isFolder = S_ISDIR(status.stx_mode);
    // Kernels before 5.8 do not tell.
    return (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0 ||
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

} // namespace

bool isNetworkMount(std::string_view type, std::string_view source) {
    if (type.starts_with("fuse."))
        type.remove_prefix(5);
    if (std::ranges::binary_search(networkTypes, type))
        return true;
    // "server:/folder" and "//server/share", of types that nobody has heard of yet.
    return source.starts_with("//") ||
           (!source.starts_with('/') && source.find(":/") != std::string_view::npos);
}

void markBrowsable(std::vector<MountEntry>& mounts) {
    std::map<std::string_view, const MountEntry*> standing; // by source
    for (const MountEntry& mount : mounts) {
        // Other sources are words that mean nothing, "/dev/fuse" among them.
        const bool namesDevice = !mount.isLocal || (mount.source.starts_with("/dev/") && !mount.mayHang());
        if (!mount.isFolder || !namesDevice)
            continue;
        const MountEntry*& current = standing[mount.source];
        if (current == nullptr || standsForDeviceBefore(mount, *current))
            current = &mount;
    }
    for (MountEntry& mount : mounts) {
        const auto found = standing.find(mount.source);
        const bool isFurtherMount = found != standing.end() && found->second != &mount;
        const bool isForBooting = isAtOrBelow(mount.path, "/boot") || isAtOrBelow(mount.path, "/efi");
        const bool isHidden = isFurtherMount || isForBooting || !mount.isFolder ||
                              hasOption(mount.options, "x-gvfs-hide") ||
                              std::ranges::binary_search(pseudoTypes, mount.type);
        mount.isBrowsable = mount.path == "/" || !isHidden || hasOption(mount.options, "x-gvfs-show");
    }
}

std::vector<MountEntry> readMountTable() {
    std::vector<MountEntry> mounts;
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS // newer versions have the same under longer names
        GList* const entries = g_unix_mounts_get(nullptr);
    for (const GList* link = entries; link != nullptr; link = link->next) {
        auto* const entry = static_cast<GUnixMountEntry*>(link->data);
        MountEntry mount;
        mount.path = textOrEmpty(g_unix_mount_get_mount_path(entry));
        mount.source = textOrEmpty(g_unix_mount_get_device_path(entry));
        mount.root = textOrEmpty(g_unix_mount_get_root_path(entry));
        mount.type = textOrEmpty(g_unix_mount_get_fs_type(entry));
        mount.options = textOrEmpty(g_unix_mount_get_options(entry));
        mount.isReadOnly = g_unix_mount_is_readonly(entry) != FALSE;
        mount.isLocal = !isNetworkMount(mount.type, mount.source);
        if (mount.path.starts_with('/'))
            mounts.push_back(std::move(mount));
    }
    g_list_free_full(entries,
                     [](gpointer entry) { g_unix_mount_free(static_cast<GUnixMountEntry*>(entry)); });
    G_GNUC_END_IGNORE_DEPRECATIONS

    // Of several mounts on one point, the last covers the others.
    std::set<std::string> seen;
    std::ranges::reverse(mounts);
    std::erase_if(mounts,
                  [&](MountEntry& mount) { return !seen.insert(mount.path).second || !inspect(mount); });
    std::ranges::reverse(mounts);
    if (std::ranges::find(mounts, "/", &MountEntry::path) == mounts.end())
        mounts.insert(mounts.begin(), unlistedRoot());
    markBrowsable(mounts);
    return mounts;
}

const MountEntry* mountHolding(const std::vector<MountEntry>& mounts, std::string_view path) {
    const MountEntry* innermost = nullptr;
    for (const MountEntry& mount : mounts) {
        if (isAtOrBelow(path, mount.path) &&
            (innermost == nullptr || mount.path.size() > innermost->path.size()))
            innermost = &mount;
    }
    return innermost;
}

const MountEntry* mountAt(const std::vector<MountEntry>& mounts, std::string_view path) {
    const auto found = std::ranges::find(mounts, path, &MountEntry::path);
    return found != mounts.end() ? &*found : nullptr;
}

} // namespace tarnwell
