#include "TarnwellCore/Platform/Linux/BlockDevices.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;

/// A device folder as the kernel lays it out, with the link by which it is found.
fs::path makeDevice(const test::TemporaryFolder& sysfs, const std::string& place, const char* number,
                    const char* removable) {
    const fs::path folder = sysfs.makeFolder("devices/" + place);
    sysfs.makeFolder("dev/block");
    fs::create_symlink("../../devices/" + place, sysfs / "dev/block" / number);
    if (removable != nullptr)
        sysfs.writeFile("devices/" + place + "/removable", removable);
    else
        sysfs.writeFile("devices/" + place + "/partition", "1\n");
    return folder;
}

TEST(BlockDevices, FactsComeFromTheDriveBelow) {
    const test::TemporaryFolder sysfs;
    makeDevice(sysfs, "pci0/ata1/block/sda", "8:0", "0\n");
    const fs::path internal = makeDevice(sysfs, "pci0/ata1/block/sda/sda1", "8:1", nullptr);
    makeDevice(sysfs, "pci0/usb1/1-1/block/sdb", "8:16", "1\n");
    const fs::path stick = makeDevice(sysfs, "pci0/usb1/1-1/block/sdb/sdb1", "8:17", nullptr);
    makeDevice(sysfs, "pci0/usb1/1-2/block/sdc", "8:32", "0\n");
    makeDevice(sysfs, "pci0/ata2/block/sr0", "11:0", "1\n");
    makeDevice(sysfs, "virtual/block/loop3", "7:3", "0\n");
    // An encrypted volume on a logical one on the stick, and one that lies on itself.
    const fs::path logical = makeDevice(sysfs, "virtual/block/dm-0", "253:0", "0\n");
    makeDevice(sysfs, "virtual/block/dm-1", "253:1", "0\n");
    const fs::path strange = makeDevice(sysfs, "virtual/block/dm-2", "253:2", "0\n");
    const auto lieOn = [&](const char* upper, const fs::path& lower) {
        fs::create_directory_symlink(
            lower,
            sysfs.makeFolder(std::string("devices/virtual/block/") + upper + "/slaves") / lower.filename());
    };
    lieOn("dm-0", stick);
    lieOn("dm-0", internal);
    lieOn("dm-1", logical);
    lieOn("dm-2", strange);

    const struct {
        dev_t device;
        bool isRemovable;
        bool isExternal;
    } cases[] = {
        {makedev(8, 0), false, false}, {makedev(8, 1), false, false}, {makedev(8, 17), true, true},
        {makedev(8, 32), false, true}, {makedev(11, 0), true, false}, {makedev(7, 3), false, true},
        {makedev(253, 0), true, true}, {makedev(253, 1), true, true}, {makedev(253, 2), false, false},
    };
    for (const auto& each : cases) {
        const auto facts = readBlockDevice(each.device, sysfs.path());
        ASSERT_TRUE(facts) << minor(each.device);
        EXPECT_EQ(facts->isRemovable, each.isRemovable) << major(each.device) << ":" << minor(each.device);
        EXPECT_EQ(facts->isExternal, each.isExternal) << major(each.device) << ":" << minor(each.device);
    }
    EXPECT_FALSE(readBlockDevice(makedev(9, 9), sysfs.path()));
    EXPECT_FALSE(readBlockDevice(makedev(8, 0), sysfs / "missing"));
}

TEST(BlockDevices, NamesOfDevices) {
    const test::TemporaryFolder folder;
    fs::path device;
    for (const fs::directory_entry& each : fs::directory_iterator("/dev")) {
        if (each.is_block_file())
            device = each.path();
    }
    if (device.empty())
        GTEST_SKIP() << "no block device here";
    fs::create_symlink("/nonexistent", folder / "dangling");
    fs::create_symlink("/dev/null", folder / "no block device");
    EXPECT_TRUE(deviceNames(folder.path()).empty());
    fs::create_symlink(device, folder / "My\\x20Disk\\x2f\\x4\\xZZ\\");
    struct stat status = {};
    ASSERT_EQ(::stat(device.c_str(), &status), 0);
    EXPECT_EQ(deviceNames(folder.path()),
              (std::map<dev_t, std::string>{{status.st_rdev, "My Disk/\\x4\\xZZ\\"}}));
    EXPECT_TRUE(deviceNames(folder / "missing").empty());
}

} // namespace
} // namespace tarnwell
