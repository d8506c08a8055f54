// What deleting a set of files frees, as reckoned before, against what the file system says afterwards: on
// random trees of clones, parts of clones, overwritten and cut files, links and snapshots.

#include "TarnwellCore/Analysis/FreedSpace.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/MountedImage.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/btrfs.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

constexpr std::int64_t block = 4096;

class Descriptor {
public:
    Descriptor(const fs::path& path, int flags) : number_(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {
        if (number_ < 0)
            throw fs::filesystem_error("open", path, std::error_code(errno, std::generic_category()));
    }
    ~Descriptor() { ::close(number_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    operator int() const { return number_; }

private:
    int number_;
};

/// Bytes used for files' contents. On btrfs without the file system's own records, which a statfs of it
/// counts too.
std::int64_t usedBytes(const fs::path& mount, bool isBtrfs) {
    const Descriptor folder(mount, O_RDONLY | O_DIRECTORY);
    ::syncfs(folder);
    if (!isBtrfs) {
        struct statvfs status = {};
        ::fstatvfs(folder, &status);
        return static_cast<std::int64_t>(status.f_blocks - status.f_bfree) *
               static_cast<std::int64_t>(status.f_frsize);
    }
    std::vector<std::byte> memory(sizeof(btrfs_ioctl_space_args) + 16 * sizeof(btrfs_ioctl_space_info));
    auto* arguments = reinterpret_cast<btrfs_ioctl_space_args*>(memory.data());
    arguments->space_slots = 16;
    EXPECT_EQ(::ioctl(folder, BTRFS_IOC_SPACE_INFO, arguments), 0);
    std::int64_t used = 0;
    for (std::uint64_t index = 0; index < arguments->total_spaces; ++index)
        if ((arguments->spaces[index].flags & 1) != 0) // BTRFS_BLOCK_GROUP_DATA
            used += static_cast<std::int64_t>(arguments->spaces[index].used_bytes);
    return used;
}

/// The file systems give space back some time after the last name is gone.
std::int64_t usedBytesAtRest(const fs::path& mount, bool isBtrfs) {
    std::int64_t used = usedBytes(mount, isBtrfs);
    for (int calm = 0; calm < 3;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
        const std::int64_t now = usedBytes(mount, isBtrfs);
        calm = now == used ? calm + 1 : 0;
        used = now;
    }
    return used;
}

class RandomSharing {
public:
    RandomSharing(fs::path mount, bool isBtrfs, unsigned seed)
        : mount_(std::move(mount)), isBtrfs_(isBtrfs), random_(seed) {}

    void make() {
        const fs::path data = mount_ / "data";
        if (!fs::exists(data)) {
            if (isBtrfs_)
                makeSubvolume(data);
            else
                fs::create_directory(data);
        }
        fs::create_directory(mount_ / "other");
        for (const char* folder : {"a", "b", "b/c"})
            fs::create_directory(data / folder);
        folders_ = {data, data / "a", data / "b", data / "b/c", mount_ / "other"};
        for (int step = 0; step < 40; ++step)
            change(step);
        if (isBtrfs_ && below(2) == 0) {
            const fs::path snapshot = mount_ / ("snapshot" + std::to_string(snapshots_.size()));
            if (!fs::exists(snapshot))
                makeSnapshot(data, snapshot);
            const std::size_t count = files_.size();
            for (std::size_t index = 0; index < count; ++index)
                if (const fs::path copy = snapshot / files_[index].lexically_relative(data); fs::exists(copy))
                    files_.push_back(copy);
            for (int step = 100; step < 110; ++step)
                change(step);
        }
    }

    /// Some of the files, and now and then whole folders of them.
    std::vector<fs::path> chosen() {
        std::vector<fs::path> paths;
        const int share = 1 + below(4);
        for (const fs::path& file : files_)
            if (below(5) < share)
                paths.push_back(file);
        for (std::size_t folder = 1; folder < folders_.size(); ++folder)
            if (below(4) == 0)
                paths.push_back(folders_[folder]);
        return paths;
    }

    /// A file whose blocks have no place on the disk yet.
    void writeLater() {
        const fs::path path = folders_[1] / "later";
        std::ofstream(path) << std::string(20 * block, 'l');
        files_.push_back(path);
    }

    const std::vector<fs::path>& files() const { return files_; }
    int below(int end) { return std::uniform_int_distribution<int>(0, end - 1)(random_); }

private:
    void change(int step) {
        const int kind = files_.empty() ? 0 : below(8);
        const fs::path target = folders_[static_cast<std::size_t>(below(5))] / ("f" + std::to_string(step));
        const fs::path& some =
            files_.empty() ? target : files_[static_cast<std::size_t>(below(int(files_.size())))];
        if (kind <= 1) {
            write(target, 0, 2 + below(60), O_CREAT);
            files_.push_back(target);
        } else if (kind == 2) {
            clone(some, target, 0, 0, 0);
            files_.push_back(target);
        } else if (kind == 3) {
            const std::int64_t blocks = static_cast<std::int64_t>(fs::file_size(some)) / block;
            if (blocks < 4)
                return;
            write(target, 0, 3, O_CREAT);
            const int first = below(int(blocks) - 1);
            clone(some, target, first, below(6), 1 + below(int(blocks) - first));
            files_.push_back(target);
        } else if (kind == 4) {
            std::error_code error;
            fs::create_hard_link(some, target, error);
            if (!error)
                files_.push_back(target);
        } else if (kind == 5) {
            const Descriptor file(some, O_WRONLY);
            ::ftruncate(file, (1 + below(30)) * block);
            ::fsync(file);
        } else {
            write(some, below(30), 1 + below(10), 0);
        }
    }

    void write(const fs::path& path, std::int64_t first, std::int64_t blocks, int flags) {
        const Descriptor file(path, O_WRONLY | flags);
        std::string bytes(static_cast<std::size_t>(blocks * block), '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random_());
        EXPECT_EQ(::pwrite(file, bytes.data(), bytes.size(), first * block),
                  static_cast<ssize_t>(bytes.size()));
        ::fsync(file);
    }

    void clone(const fs::path& from, const fs::path& to, std::int64_t first, std::int64_t at,
               std::int64_t blocks) {
        const Descriptor source(from, O_RDONLY);
        const Descriptor target(to, O_WRONLY | O_CREAT);
        struct file_clone_range range = {};
        range.src_fd = source;
        range.src_offset = static_cast<std::uint64_t>(first * block);
        range.src_length = static_cast<std::uint64_t>(blocks * block);
        range.dest_offset = static_cast<std::uint64_t>(at * block);
        ::ioctl(target, FICLONERANGE, &range); // a hole beyond the end may be refused
        ::fsync(target);
    }

    void makeSubvolume(const fs::path& path) {
        const Descriptor parent(path.parent_path(), O_RDONLY | O_DIRECTORY);
        btrfs_ioctl_vol_args_v2 arguments = {};
        path.filename().string().copy(arguments.name, BTRFS_SUBVOL_NAME_MAX);
        ASSERT_EQ(::ioctl(parent, BTRFS_IOC_SUBVOL_CREATE_V2, &arguments), 0) << std::strerror(errno);
    }

    void makeSnapshot(const fs::path& of, const fs::path& path) {
        const Descriptor source(of, O_RDONLY | O_DIRECTORY);
        ::syncfs(source);
        const Descriptor parent(path.parent_path(), O_RDONLY | O_DIRECTORY);
        btrfs_ioctl_vol_args_v2 arguments = {};
        arguments.fd = source;
        path.filename().string().copy(arguments.name, BTRFS_SUBVOL_NAME_MAX);
        ASSERT_EQ(::ioctl(parent, BTRFS_IOC_SNAP_CREATE_V2, &arguments), 0) << std::strerror(errno);
        snapshots_.push_back(path);
    }

    fs::path mount_;
    bool isBtrfs_;
    std::mt19937 random_;
    std::vector<fs::path> folders_;
    std::vector<fs::path> files_;
    std::vector<fs::path> snapshots_;
};

class FreedSpaceTruth : public testing::TestWithParam<const char*> {};

TEST_P(FreedSpaceTruth, HoldsForRandomTrees) {
    const bool isBtrfs = std::string(GetParam()) == "btrfs";
    const unsigned rounds = std::getenv("TARNWELL_THOROUGH") != nullptr ? 12 : 2;
    constexpr unsigned perImage = 25;
    int certain = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        const auto image = test::MountedImage::make({.type = GetParam()});
        if (!image)
            GTEST_SKIP() << image.error();
        const fs::path mount = (*image)->path();
        for (unsigned seed = round * perImage; seed < (round + 1) * perImage; ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            RandomSharing tree(mount, isBtrfs, seed);
            ASSERT_NO_FATAL_FAILURE(tree.make());
            // XFS reserves more than it will use.
            if (isBtrfs)
                tree.writeLater();
            const bool seesAll = seed % 2 == 0;
            ScanOptions options;
            options.crossFilesystemBoundaries = true;
            const ScanResult scan = ScanEngine(seesAll ? mount : mount / "data", options).run();
            const std::int64_t before = usedBytesAtRest(mount, isBtrfs);
            const FreedSpace freedSpace(scan);
            std::vector<fs::path> paths;
            std::vector<const FileNode*> nodes;
            for (const fs::path& path : tree.chosen())
                if (const FileNode* node = scan.root->node(path.string())) {
                    paths.push_back(path);
                    nodes.push_back(node);
                }
            const FreedBytes freed = freedSpace.of(nodes);
            for (const fs::path& path : paths)
                fs::remove_all(path);
            const std::int64_t truth = before - usedBytesAtRest(mount, isBtrfs);
            // XFS gives back, besides, what its own records of these files took: inodes by 64, folders, and the
            // trees of extents and of who shares them.
            const std::int64_t ownRecords = isBtrfs ? 0 : 32 * block;
            EXPECT_LE(freed.atLeast, truth);
            EXPECT_GE(freed.atMost + ownRecords, truth);
            EXPECT_TRUE(!seesAll || freed.atLeast == freed.atMost) << freed.atLeast << ' ' << freed.atMost;
            certain += freed.atLeast == freed.atMost ? 1 : 0;
            for (const fs::path& path : tree.files()) {
                std::error_code error;
                fs::remove(path, error);
            }
            if (HasFailure())
                return;
        }
    }
    EXPECT_GT(certain, static_cast<int>(rounds * perImage / 2) - 1);
}

INSTANTIATE_TEST_SUITE_P(OnRealFileSystems, FreedSpaceTruth, testing::Values("btrfs", "xfs"),
                         [](const auto& kind) { return std::string(kind.param); });

} // namespace
} // namespace tarnwell
