#include "TarnwellCore/Scanning/DiskInfo.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace tarnwell {
namespace {

TEST(DiskInfo, MissingPropertiesAreCompletedFromStatistics) {
    VolumeProperties properties;
    properties.path = "/Volumes/Disk";
    const DiskInfo::FileSystemStatistics statistics{1000, 400, "apfs", true};

    VolumeInfo volume = DiskInfo::completedVolume(properties, statistics);
    EXPECT_EQ(volume.url, "/Volumes/Disk/");
    EXPECT_EQ(volume.name, "Disk");
    EXPECT_EQ(volume.totalCapacity, 1000);
    EXPECT_EQ(volume.availableCapacity, 400);
    EXPECT_EQ(volume.availableForImportantUsage, 400);
    EXPECT_EQ(volume.availableForOpportunisticUsage, 400);
    EXPECT_EQ(volume.fileSystemType, "apfs");
    EXPECT_TRUE(volume.isReadOnly);
    EXPECT_TRUE(volume.isBrowsable);
    EXPECT_FALSE(volume.isNetwork);

    // What the platform reports goes first, also when it is 0 or false.
    properties.name = "Name";
    properties.totalCapacity = 2000;
    properties.availableCapacity = 0;
    properties.availableForImportantUsage = 70;
    properties.availableForOpportunisticUsage = 0;
    properties.isReadOnly = false;
    properties.uuid = "ID";
    volume = DiskInfo::completedVolume(properties, statistics);
    EXPECT_EQ(volume.name, "Name");
    EXPECT_EQ(volume.totalCapacity, 2000);
    EXPECT_EQ(volume.availableCapacity, 0);
    EXPECT_EQ(volume.availableForImportantUsage, 70);
    EXPECT_EQ(volume.availableForOpportunisticUsage, 0);
    EXPECT_FALSE(volume.isReadOnly);
    EXPECT_EQ(volume.uuid, "ID");

    // An external disk: nothing could be purged on it.
    properties.availableCapacity = 500;
    properties.availableForImportantUsage = 0;
    EXPECT_EQ(DiskInfo::completedVolume(properties, statistics).availableForImportantUsage, 500);

    // Nobody knows anything.
    properties = {};
    properties.path = "/";
    volume = DiskInfo::completedVolume(properties, std::nullopt);
    EXPECT_EQ(volume.url, "/");
    EXPECT_EQ(volume.name, "/");
    EXPECT_TRUE(volume.isRootVolume);
    EXPECT_EQ(volume.totalCapacity, 0);
    EXPECT_EQ(volume.fileSystemType, "unknown");
    EXPECT_EQ(volume.uuid, std::nullopt);
}

TEST(DiskInfo, NetworkVolumesAreKnownByPlaceOrType) {
    const struct {
        std::optional<bool> isLocal;
        const char* type;
        bool isNetwork;
    } cases[] = {
        {true, "apfs", false}, {std::nullopt, "apfs", false}, {false, "apfs", true},
        {true, "smbfs", true}, {std::nullopt, "nfsx", false},
    };
    for (const auto& each : cases) {
        VolumeProperties properties;
        properties.path = "/v";
        properties.isLocal = each.isLocal;
        properties.fileSystemType = each.type;
        EXPECT_EQ(DiskInfo::completedVolume(properties, std::nullopt).isNetwork, each.isNetwork) << each.type;
    }
}

TEST(DiskInfo, RootThenLocalThenNetworkEachByName) {
    const auto volume = [](const char* name, const char* path, bool isNetwork) {
        VolumeInfo info;
        info.name = name;
        info.path = path;
        info.isNetwork = isNetwork;
        info.isRootVolume = info.path == "/";
        return info;
    };
    std::vector<VolumeInfo> volumes = {
        volume("Archive", "/n1", true),   volume("disk 10", "/v10", false), volume("Disk 2", "/v2", false),
        volume("apple", "/v3", false),    volume("Zebra", "/v4", false),    volume("zz", "/", false),
        volume("archive 2", "/n2", true), volume("\xFF", "/v5", false),     volume("apple", "/v1", false),
    };
    DiskInfo::sortVolumes(volumes);
    std::vector<std::string> paths;
    for (const VolumeInfo& each : volumes) {
        if (each.path != "/v5") // where bytes that are no text belong is the platform's affair
            paths.push_back(each.path);
    }
    EXPECT_EQ(paths, (std::vector<std::string>{"/", "/v1", "/v3", "/v2", "/v10", "/v4", "/n1", "/n2"}));
}

TEST(DiskInfo, TheBootVolumeIsFirstAndHoldsWhatItHolds) {
    const Date before = currentDate();
    const auto snapshot = DiskInfo::systemSnapshot();
    ASSERT_TRUE(snapshot);
    EXPECT_TRUE(snapshot->capturedAt >= before && snapshot->capturedAt <= currentDate());
    const VolumeInfo& boot = snapshot->volume;
    EXPECT_EQ(boot.path, "/");
    EXPECT_TRUE(boot.isRootVolume);
    EXPECT_TRUE(boot.isBrowsable);
    EXPECT_GT(boot.totalCapacity, 0);
    EXPECT_LE(boot.availableCapacity, boot.totalCapacity);
    EXPECT_NE(boot.fileSystemType, "unknown");

    const auto volumes = DiskInfo::mountedVolumes(false);
    ASSERT_FALSE(volumes.empty());
    EXPECT_EQ(volumes.front().path, "/");
    EXPECT_TRUE(std::ranges::all_of(volumes, &VolumeInfo::isBrowsable));
    EXPECT_GE(DiskInfo::mountedVolumes(true).size(), volumes.size());
}

TEST(DiskInfo, WhatIsNoVolumeOrNoPathGivesNothing) {
    const test::TemporaryFolder folder;
    const std::string file = folder.writeFile("file", "");
    EXPECT_FALSE(DiskInfo::volume(folder.path()));
    EXPECT_FALSE(DiskInfo::volume(file));
    EXPECT_TRUE(DiskInfo::volumeContaining(file));
    EXPECT_TRUE(DiskInfo::fileSystemStatistics(file));
    for (const std::string& path : {std::string(), (folder / "missing").string(), std::string("/\0x", 3)}) {
        EXPECT_FALSE(DiskInfo::volume(path)) << path;
        EXPECT_FALSE(DiskInfo::volumeContaining(path)) << path;
        EXPECT_FALSE(DiskInfo::fileSystemStatistics(path)) << path;
    }
}

} // namespace
} // namespace tarnwell
