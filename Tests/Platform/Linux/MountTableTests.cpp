#include "TarnwellCore/Platform/Linux/MountTable.hpp"

#include <gtest/gtest.h>

namespace tarnwell {
namespace {

MountEntry entry(const char* path, const char* source, const char* type, const char* root = "/") {
    MountEntry mount;
    mount.path = path;
    mount.source = source;
    mount.root = root;
    mount.type = type;
    mount.isLocal = !isNetworkMount(type, source);
    return mount;
}

std::vector<std::string> browsablePaths(std::vector<MountEntry> mounts) {
    markBrowsable(mounts);
    std::vector<std::string> paths;
    for (const MountEntry& mount : mounts) {
        if (mount.isBrowsable)
            paths.push_back(mount.path);
    }
    return paths;
}

TEST(MountTable, WhatUsersSeeAsPlaces) {
    using Paths = std::vector<std::string>;
    // A desktop on btrfs subvolumes, with a stick, two shares and the usual noise.
    std::vector<MountEntry> desktop = {
        entry("/proc", "proc", "proc"),
        entry("/run", "tmpfs", "tmpfs"),
        entry("/", "/dev/sda3", "btrfs", "/@"),
        entry("/home", "/dev/sda3", "btrfs", "/@home"),
        entry("/boot", "/dev/sda2", "ext4"),
        entry("/boot/efi", "/dev/sda1", "vfat"),
        entry("/bootleg", "/dev/sdc1", "ext4"),
        entry("/media/me/STICK", "/dev/sdb1", "vfat"),
        entry("/mnt/share", "server:/export", "nfs4"),
        entry("/mnt/share-again", "server:/export", "nfs4"),
        entry("/mnt/a", "/dev/fuse", "fuse"),
        entry("/mnt/b", "/dev/fuse", "fuse"),
        entry("/tank", "tank", "zfs"),
        entry("/snap/core/1", "/dev/loop0", "squashfs"),
        entry("/ram", "tmpfs", "tmpfs"),
    };
    desktop[13].options = "ro,nodev,x-gvfs-hide";
    desktop[14].options = "rw,x-gvfs-show";
    EXPECT_EQ(browsablePaths(desktop),
              (Paths{"/", "/bootleg", "/media/me/STICK", "/mnt/share", "/mnt/a", "/mnt/b", "/tank", "/ram"}));

    // A container: the root is a layer, single files and two folders come from the host's one disk.
    std::vector<MountEntry> container = {
        entry("/", "overlay", "overlay"),
        entry("/etc/hosts", "/dev/vda1", "ext4", "/var/containers/hosts"),
        entry("/data", "/dev/vda1", "ext4", "/srv/data"),
        entry("/workspace", "/dev/vda1", "ext4", "/"),
        entry("/srv/merged", "overlay", "overlay"),
    };
    container[1].isFolder = false;
    EXPECT_EQ(browsablePaths(container), (Paths{"/", "/workspace"}));
    container[3].root = "/srv/workspace";
    EXPECT_EQ(browsablePaths(container), (Paths{"/", "/data"}));
    EXPECT_EQ(browsablePaths({}), Paths());
}

TEST(MountTable, NetworkMounts) {
    const struct {
        const char* type;
        const char* source;
        bool isNetwork;
    } cases[] = {
        {"nfs4", "server:/export", true},
        {"cifs", "//server/share", true},
        {"fuse.sshfs", "me@host:", true},
        {"fuse.rclone", "remote:", true},
        {"newfs", "host:/volume", true},
        {"ext4", "/dev/mapper/a:/b", false},
        {"fuse.mergerfs", "a:b", false},
        {"zfs", "tank/home", false},
        {"fuseblk", "/dev/sdb1", false},
        {"tmpfs", "tmpfs", false},
        {"", "", false},
    };
    for (const auto& each : cases)
        EXPECT_EQ(isNetworkMount(each.type, each.source), each.isNetwork) << each.type;
}

TEST(MountTable, InnermostMountHoldsAPath) {
    const std::vector<MountEntry> mounts = {entry("/mnt/disk", "/dev/b", "ext4"),
                                            entry("/", "/dev/a", "ext4"),
                                            entry("/mnt/disk/inner", "/dev/c", "ext4")};
    EXPECT_EQ(mountHolding(mounts, "/mnt/disk/inner/file"), &mounts[2]);
    EXPECT_EQ(mountHolding(mounts, "/mnt/disk"), &mounts[0]);
    EXPECT_EQ(mountHolding(mounts, "/mnt/disk2"), &mounts[1]);
    EXPECT_EQ(mountHolding({}, "/"), nullptr);
}

} // namespace
} // namespace tarnwell
