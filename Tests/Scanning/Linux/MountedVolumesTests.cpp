// Volumes as they are on a running system: real file systems, compared with what other tools say of them.

#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Scanning/SpaceMonitor.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/SilentShare.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using test::MountedImage;

struct Figures {
    std::string type;
    std::int64_t size = -1;
    std::int64_t available = -1;
    std::string mountPoint;
};

Figures askDf(const std::string& path) {
    Figures figures;
    const auto result = Shell::run("/bin/df", {"-B1", "--output=fstype,size,avail,target", "--", path}, 30);
    if (result && result->succeeded()) {
        std::istringstream lines(result->standardOutput);
        std::string heading;
        std::getline(lines, heading);
        lines >> figures.type >> figures.size >> figures.available >> std::ws;
        std::getline(lines, figures.mountPoint);
    }
    return figures;
}

const VolumeInfo* find(const std::vector<VolumeInfo>& volumes, const std::string& path) {
    const auto found = std::ranges::find(volumes, path, &VolumeInfo::path);
    return found != volumes.end() ? &*found : nullptr;
}

void bind(const fs::path& from, const fs::path& to) {
    ASSERT_EQ(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr), 0) << to;
}

TEST(MountedVolumes, AgreeWithDf) {
    for (const VolumeInfo& volume : DiskInfo::mountedVolumes(false)) {
        const Figures df = askDf(volume.path);
        EXPECT_EQ(volume.path, df.mountPoint);
        if (df.type != "-") { // it knows none for a root that no table lists
            EXPECT_EQ(volume.fileSystemType, df.type) << volume.path;
        }
        EXPECT_EQ(volume.totalCapacity, df.size) << volume.path;
        EXPECT_NEAR(static_cast<double>(volume.availableCapacity), static_cast<double>(df.available), 1e9);
    }
    const auto all = DiskInfo::mountedVolumes(true);
    EXPECT_NE(find(all, "/"), nullptr);
    const VolumeInfo* const hidden = find(all, "/proc");
    ASSERT_NE(hidden, nullptr);
    EXPECT_EQ(hidden->fileSystemType, "proc");
    EXPECT_FALSE(hidden->isBrowsable);
}

TEST(MountedVolumes, AnImageIsAVolumeOfItsOwn) {
    const std::string uuid = "6f3c1d1e-6d0b-4d8c-9f52-0a3d7c5e8b11";
    const struct {
        const char* type;
        const char* formatOption;
        const char* name; // of the mount point
        const char* volumeName;
        bool hasUUID;
    } cases[] = {
        {"ext4", "-LMy Disk", "volume", "My Disk", false},
        {"ext4", "-U6f3c1d1e-6d0b-4d8c-9f52-0a3d7c5e8b11", "a b\n'\\040\xFF", "a b\n'\\040\xFF", true},
        {"btrfs", "-LData", "volume", "Data", false},
        {"btrfs", "-U6f3c1d1e-6d0b-4d8c-9f52-0a3d7c5e8b11", "volume", "volume", true},
        {"xfs", "-Lroom", "volume", "room", false},
    };
    for (const auto& each : cases) {
        const auto image =
            MountedImage::make({.type = each.type, .name = each.name, .formatOption = each.formatOption});
        if (!image)
            GTEST_SKIP() << image.error();
        const std::string path = (*image)->path();
        const std::string file = path + "/file";
        std::ofstream(file) << "hello";
        ::sync();

        const auto volume = DiskInfo::volume((*image)->path());
        ASSERT_TRUE(volume) << each.type;
        EXPECT_EQ(volume->path, path);
        EXPECT_EQ(volume->name, each.volumeName);
        EXPECT_EQ(volume->fileSystemType, each.type);
        EXPECT_FALSE(volume->isRootVolume);
        EXPECT_FALSE(volume->isReadOnly);
        EXPECT_FALSE(volume->isNetwork);
        EXPECT_FALSE(volume->isInternal);
        EXPECT_FALSE(volume->isRemovable);
        EXPECT_TRUE(volume->isEjectable);
        EXPECT_TRUE(volume->isBrowsable);
        if (each.hasUUID && volume->uuid) { // old kernels do not tell
            EXPECT_EQ(volume->uuid, uuid);
        }
        const Figures df = askDf(path);
        EXPECT_EQ(volume->totalCapacity, df.size) << each.type;
        EXPECT_EQ(volume->availableCapacity, df.available) << each.type;
        EXPECT_EQ(volume->availableForImportantUsage, df.available);
        const auto statistics = DiskInfo::fileSystemStatistics(file);
        EXPECT_EQ(statistics, (DiskInfo::FileSystemStatistics{df.size, df.available, each.type, false}));

        // The same volume by any road.
        EXPECT_EQ(DiskInfo::volume(path + "//"), volume);
        EXPECT_EQ(DiskInfo::volumeContaining(file), volume);
        const test::TemporaryFolder elsewhere;
        fs::create_symlink(path, elsewhere / "link");
        EXPECT_EQ(DiskInfo::volume(elsewhere / "link"), volume);
        EXPECT_EQ(DiskInfo::volumeContaining(elsewhere / "link/file"), volume);
        EXPECT_EQ(DiskInfo::volumeContaining(elsewhere.path())->path, "/");
        EXPECT_FALSE(DiskInfo::volume(file));
        const auto volumes = DiskInfo::mountedVolumes(false);
        ASSERT_NE(find(volumes, path), nullptr);
        EXPECT_EQ(*find(volumes, path), *volume);

        // Nothing is remembered: what is gone now is missing from the next look's figures.
        fs::resize_file(file, 0);
        std::ofstream(file) << std::string(2'000'000, 'x');
        ::sync();
        const std::int64_t left = askDf(path).available;
        EXPECT_LT(left, df.available) << each.type;
        EXPECT_EQ(DiskInfo::volume(path)->availableCapacity, left) << each.type;
        EXPECT_EQ(DiskInfo::fileSystemStatistics(file)->available, left) << each.type;

        (*image)->remount("ro");
        EXPECT_TRUE(DiskInfo::volume(path)->isReadOnly);
        EXPECT_TRUE(DiskInfo::fileSystemStatistics(file)->isReadOnly);
        (*image)->unmount();
        EXPECT_FALSE(DiskInfo::volume(path));
        EXPECT_EQ(find(DiskInfo::mountedVolumes(true), path), nullptr);
    }
}

TEST(MountedVolumes, MemoryFurtherMountsAndSingleFilesAreNotBrowsable) {
    const auto image = MountedImage::make({.type = "ext4", .size = 64'000'000});
    const auto memory = MountedImage::make({.type = "tmpfs", .size = 1'000'000});
    if (!image || !memory)
        GTEST_SKIP() << (image ? memory.error() : image.error());
    const test::TemporaryFolder folder;
    const fs::path again = folder.makeFolder("x");
    const fs::path file = folder.writeFile("file", "");
    const fs::path covered = folder.makeFolder("outer/covered");
    std::ofstream((*image)->path() / "content") << "hello";
    bind((*image)->path(), again);
    bind((*image)->path() / "content", file);
    bind((*image)->path(), covered);
    bind(again, folder / "outer");

    const auto visible = DiskInfo::mountedVolumes(false);
    EXPECT_NE(find(visible, (*image)->path()), nullptr);
    for (const fs::path& path : {(*memory)->path(), again, file, folder / "outer"}) {
        EXPECT_EQ(find(visible, path), nullptr) << path;
        const auto volume = DiskInfo::volume(path);
        ASSERT_TRUE(volume) << path;
        EXPECT_FALSE(volume->isBrowsable) << path;
        EXPECT_NE(find(DiskInfo::mountedVolumes(true), path), nullptr) << path;
    }
    EXPECT_EQ(DiskInfo::volume((*memory)->path())->totalCapacity, askDf((*memory)->path()).size);
    // Out of reach below another mount.
    EXPECT_EQ(find(DiskInfo::mountedVolumes(true), covered), nullptr);
    EXPECT_FALSE(DiskInfo::volume(covered));
    for (const fs::path& path : {folder / "outer", covered, file, again})
        EXPECT_EQ(::umount2(path.c_str(), MNT_DETACH), 0) << path;
}

TEST(MountedVolumes, AVolumeThatGoesMeanwhileIsNotMistakenForTheOneBelow) {
    const auto place = MountedImage::make({.type = "tmpfs", .size = 1'000'000});
    if (!place)
        GTEST_SKIP() << place.error();
    const fs::path point = (*place)->path() / "coming and going";
    fs::create_directory(point);
    const std::int64_t size = 40 * 4096;
    std::atomic<bool> isOver = false;
    // Started from here on, so it shares the mounts.
    std::thread mounter([&] {
        const std::string options = "size=" + std::to_string(size);
        while (!isOver) {
            EXPECT_EQ(::mount("tarnwell-test", point.c_str(), "tmpfs", 0, options.c_str()), 0);
            std::this_thread::yield();
            EXPECT_EQ(::umount2(point.c_str(), MNT_DETACH), 0);
        }
    });
    int seen = 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(1500);
    while (std::chrono::steady_clock::now() < end) {
        const auto volumes = DiskInfo::mountedVolumes(true);
        const VolumeInfo* const listed = find(volumes, point);
        const auto asked = DiskInfo::volume(point);
        for (const VolumeInfo* const volume : {listed, asked ? &*asked : nullptr}) {
            if (volume == nullptr)
                continue;
            ++seen;
            EXPECT_EQ(volume->totalCapacity, size);
        }
    }
    isOver = true;
    mounter.join();
    EXPECT_GT(seen, 0);
}

TEST(MountedVolumes, AServerThatDoesNotAnswerHoldsNobodyUp) {
    const auto share = test::SilentShare::make();
    if (!share)
        GTEST_SKIP() << share.error();
    const fs::path point = (*share)->path();
    const std::string below = point / "folder/file";
    auto shortest = std::chrono::steady_clock::duration::max();
    for (int round = 0; round < 6; ++round) {
        const auto start = std::chrono::steady_clock::now();
        const auto volumes = DiskInfo::mountedVolumes(false);
        const VolumeInfo* const volume = find(volumes, point);
        ASSERT_NE(volume, nullptr);
        EXPECT_TRUE(volume->isNetwork);
        EXPECT_EQ(volume->fileSystemType, "fuse.sshfs");
        EXPECT_EQ(volume->totalCapacity, 0);
        EXPECT_TRUE(DiskInfo::volume(point));
        EXPECT_EQ(DiskInfo::fileSystemStatistics(point), std::nullopt);
        EXPECT_EQ(DiskInfo::volumeContaining(below), std::nullopt);
        shortest = std::min(shortest, std::chrono::steady_clock::now() - start);
    }
    SpaceMonitor monitor(0.1, SpaceMonitor::Paths{{below, "/"}}, false);
    EXPECT_EQ(monitor.updates().next()->volumes.size(), 1U);
    monitor.stop();
    // Once it is known to hang, none of the four questions of a round waits a second for it; on a busy
    // machine the quickest round shows that.
    EXPECT_LT(shortest, milliseconds(2'000));
}

} // namespace
} // namespace tarnwell
