// What is read of many files together against what the kernel says of each alone: on random trees of clones,
// parts of clones, overwritten, compressed, preallocated and sparse files, links, subvolumes and snapshots.

#include "TarnwellCore/Platform/BulkDirectoryReading.hpp"
#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include "Tests/Support/MountedImage.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/btrfs.h>
#include <linux/falloc.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

class Opened {
public:
    Opened(const fs::path& path, int flags) : number_(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {}
    ~Opened() { ::close(number_); }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
    operator int() const { return number_; }

private:
    int number_;
};

int askedFiles;

DirectoryCalls countingCalls() {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.readExtents = [](int file, void* map) {
        ++askedFiles;
        return DirectoryCalls::live().readExtents(file, map);
    };
    return calls;
}

std::string shown(const RawDirectoryEntry& entry) {
    std::string text = std::to_string(entry.allocatedSize) + " allocated, " +
                       std::to_string(entry.privateSize) + " private, flags " +
                       std::to_string(entry.extFlags) + (entry.reportsPrivateSize ? "" : ", not known");
    if (const HeldSpace* held = entry.held) {
        text += ", traits " + std::to_string(held->traits) + " on " + std::to_string(held->fileSystem) +
                ", " + std::to_string((held->traits & HeldSpace::knowsExclusive) != 0 ? held->exclusive : 0) +
                " own";
        for (const SharedExtent& extent : held->extents)
            text += " " + std::to_string(extent.start) + "+" + std::to_string(extent.length);
    }
    return text;
}

struct Comparison {
    int files = 0;
    int shared = 0;
    int asked = 0; // by themselves
    std::string differences = {};
};

/// Every file below a folder, in both ways, by a reader that starts now.
Comparison compareOnce(const fs::path& root, bool keepsHeldSpace) {
    Comparison result;
    static const DirectoryCalls calls = countingCalls();
    BulkDirectoryReading reader(calls, keepsHeldSpace);
    std::vector<std::byte> buffer(65536);
    EntryBatch batch;
    SharedExtents alone(DirectoryCalls::live());
    std::vector<fs::path> folders = {root};
    askedFiles = 0;
    while (!folders.empty()) {
        const fs::path path = folders.back();
        folders.pop_back();
        const Opened folder(path, O_RDONLY | O_DIRECTORY);
        struct stat status = {};
        ::fstat(folder, &status);
        const EntryConsumer consumer = [&](std::span<const RawDirectoryEntry> entries) {
            for (const RawDirectoryEntry& entry : entries) {
                const fs::path child = path / std::string(entry.name);
                if (entry.objectType == VnodeType::directory)
                    folders.push_back(child);
                if (entry.objectType != VnodeType::regular || entry.allocatedSize == 0)
                    continue;
                RawDirectoryEntry expected = entry;
                expected.held = nullptr;
                expected.privateSize = 0;
                expected.reportsPrivateSize = false;
                expected.extFlags = 0;
                HeldSpace held;
                alone.measure(folder, entry.name.data(), true, expected, keepsHeldSpace ? &held : nullptr);
                if (shown(entry) != shown(expected))
                    result.differences += child.native() + "\n  together " + shown(entry) + "\n  alone    " +
                                          shown(expected) + "\n";
                ++result.files;
                result.shared += entry.extFlags != 0 ? 1 : 0;
            }
            return true;
        };
        const auto device = static_cast<std::int32_t>(status.st_dev);
        batch.begin(consumer);
        EXPECT_EQ(reader.read(folder, device, true, buffer, batch), BulkReadOutcome::success) << path;
    }
    result.asked = askedFiles;
    return result;
}

/// What was written a moment ago may come to its place between the two looks; in the end it is there.
Comparison compare(const fs::path& root, bool keepsHeldSpace = true) {
    Comparison result;
    for (int attempt = 0; attempt < 5; ++attempt) {
        result = compareOnce(root, keepsHeldSpace);
        if (result.differences.empty())
            return result;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    EXPECT_EQ(result.differences, "");
    return result;
}

class RandomFiles {
public:
    RandomFiles(fs::path mount, unsigned seed) : mount_(std::move(mount)), random_(seed) {
        folders_ = {mount_ / "a"};
        fs::create_directory(folders_.front());
    }

    void change() {
        const fs::path target = some(folders_) / ("f" + std::to_string(++count_));
        const fs::path file = files_.empty() ? target : some(files_);
        switch (files_.size() < 8 ? 0 : below(14)) {
        case 0:
        case 1:
            write(target, 0, 1 + below(below(2) == 0 ? 3000 : 300'000));
            break;
        case 2:
        case 3:
            write(file, below(300'000), 1 + below(40'000));
            break;
        case 4:
        case 5:
            clone(file, target, 0, 0, 0);
            break;
        case 6:
            write(target, 0, 1 + below(100'000));
            clone(file, target, below(30) * block, below(30) * block, (1 + below(20)) * block);
            break;
        case 7: // within one file
            clone(file, file, below(10) * block, (20 + below(30)) * block, (1 + below(9)) * block);
            break;
        case 8: {
            const int modes[] = {0, FALLOC_FL_KEEP_SIZE, FALLOC_FL_KEEP_SIZE | FALLOC_FL_PUNCH_HOLE};
            ::fallocate(Opened(file, O_WRONLY), modes[below(3)], below(40) * block, (1 + below(30)) * block);
            break;
        }
        case 9:
            ::truncate(file.c_str(), below(500'000));
            break;
        case 10:
            ::link(file.c_str(), target.c_str());
            break;
        case 11: {
            const Opened made(target, O_WRONLY | O_CREAT);
            if (below(2) == 0) {
                int flags = FS_NOCOW_FL;
                ::ioctl(made, FS_IOC_SETFLAGS, &flags);
            } else {
                ::fsetxattr(made, "btrfs.compression", "zstd", 4, 0);
            }
            write(target, 0, 1 + below(400'000));
            break;
        }
        case 12:
            fs::create_directory(folders_.emplace_back(some(folders_) / ("d" + std::to_string(count_))));
            break;
        case 13:
            ::unlink(file.c_str());
            break;
        }
        if (fs::exists(target))
            files_.push_back(target);
    }

    void makeSubvolume() {
        const fs::path parent = folders_.front(); // in no snapshot, which could not be removed then
        btrfs_ioctl_vol_args_v2 arguments = {};
        const std::string name = "s" + std::to_string(++count_);
        name.copy(arguments.name, BTRFS_SUBVOL_NAME_MAX);
        ASSERT_EQ(::ioctl(Opened(parent, O_RDONLY), BTRFS_IOC_SUBVOL_CREATE_V2, &arguments), 0);
        folders_.push_back(parent / name);
    }

    /// Of what is mounted, which takes no nested ones along.
    void makeSnapshot() {
        btrfs_ioctl_vol_args_v2 arguments = {};
        const Opened source(mount_, O_RDONLY);
        arguments.fd = source;
        const std::string name = "z" + std::to_string(++count_);
        name.copy(arguments.name, BTRFS_SUBVOL_NAME_MAX);
        ASSERT_EQ(::ioctl(source, BTRFS_IOC_SNAP_CREATE_V2, &arguments), 0);
        folders_.push_back(mount_ / name / "a");
        snapshots_.push_back(mount_ / name);
    }

    void removeSnapshots() {
        for (const fs::path& path : snapshots_) {
            btrfs_ioctl_vol_args_v2 arguments = {};
            path.filename().string().copy(arguments.name, BTRFS_SUBVOL_NAME_MAX);
            EXPECT_EQ(::ioctl(Opened(mount_, O_RDONLY), BTRFS_IOC_SNAP_DESTROY_V2, &arguments), 0);
        }
        sync();
        // They are taken apart in the background.
        const std::string command = "btrfs subvolume sync '" + mount_.string() + "' >/dev/null";
        EXPECT_EQ(std::system(command.c_str()), 0);
        sync();
    }

    void sync() { ::syncfs(Opened(mount_, O_RDONLY)); }

private:
    static constexpr int block = 4096;

    int below(int end) { return std::uniform_int_distribution<int>(0, end - 1)(random_); }
    const fs::path& some(const std::vector<fs::path>& paths) {
        return paths[static_cast<std::size_t>(below(static_cast<int>(paths.size())))];
    }

    void write(const fs::path& path, int offset, int length) {
        const Opened file(path, O_WRONLY | O_CREAT);
        std::string bytes(static_cast<std::size_t>(length), 'x'); // half of it is easily compressed
        for (std::size_t index = 0; index < bytes.size() / 2; ++index)
            bytes[index] = static_cast<char>(random_());
        EXPECT_EQ(::pwrite(file, bytes.data(), bytes.size(), offset), length) << path;
        if (below(2) == 0)
            ::fsync(file);
    }

    void clone(const fs::path& from, const fs::path& to, int first, int at, int length) {
        const Opened source(from, O_RDONLY);
        const Opened target(to, O_WRONLY | O_CREAT);
        struct file_clone_range range = {};
        range.src_fd = source;
        range.src_offset = static_cast<std::uint64_t>(first);
        range.src_length = static_cast<std::uint64_t>(length);
        range.dest_offset = static_cast<std::uint64_t>(at);
        ::ioctl(target, FICLONERANGE, &range); // what is beyond the end is refused
    }

    fs::path mount_;
    std::mt19937 random_;
    std::vector<fs::path> folders_;
    std::vector<fs::path> files_;
    std::vector<fs::path> snapshots_;
    int count_ = 0;
};

class BtrfsExtentsOfManyFiles : public testing::TestWithParam<unsigned> {};

TEST_P(BtrfsExtentsOfManyFiles, AreTheSameTogetherAsAlone) {
    const auto image = test::MountedImage::make({.type = "btrfs"});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path mount = (*image)->path();
    RandomFiles files(mount, GetParam());
    const auto changeAndCompare = [&](const char* when) {
        SCOPED_TRACE(when);
        for (int step = 0; step < 60; ++step)
            files.change();
        // What was changed last is in no tree, or its references are not counted yet.
        compare(mount);
        files.sync();
        return compare(mount);
    };
    Comparison seen = changeAndCompare("without any snapshot");
    EXPECT_GT(seen.files, 15);
    EXPECT_GT(seen.shared, 0);
    EXPECT_LT(seen.asked, seen.files / 2); // those that were preallocated, or are shared by themselves
    files.makeSubvolume();
    changeAndCompare("in two subvolumes");
    files.makeSnapshot();
    compare(mount);
    changeAndCompare("after a snapshot");
    files.makeSnapshot();
    files.makeSubvolume();
    seen = changeAndCompare("after another");
    EXPECT_GT(seen.asked, 0);
    EXPECT_EQ(compare(mount, false).files, seen.files);
    // Its leaves are new, and a snapshot's all the same.
    const std::string balance = "btrfs balance start --full-balance '" + mount.string() + "' >/dev/null 2>&1";
    EXPECT_EQ(std::system(balance.c_str()), 0);
    compare(mount);
    (*image)->remount("commit=1"); // what is done in the background is done soon
    files.removeSnapshots();
    compare(mount);
    (*image)->remount("ro");
    seen = compare(mount);
    EXPECT_LT(seen.asked, seen.files * 3 / 4); // what a balance has moved is not known by name
}

INSTANTIATE_TEST_SUITE_P(OfRandomTrees, BtrfsExtentsOfManyFiles, testing::Range(0u, 6u));

} // namespace
} // namespace tarnwell
