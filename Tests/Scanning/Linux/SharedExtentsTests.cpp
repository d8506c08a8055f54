#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;

/// Writes `count` bytes that no file system can leave out, at an offset, and waits until they have blocks.
void write(const fs::path& path, std::int64_t count, std::int64_t offset = 0) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(file, 0) << path;
    const std::string bytes(static_cast<std::size_t>(count), 'x');
    EXPECT_EQ(::pwrite(file, bytes.data(), bytes.size(), offset), count);
    EXPECT_EQ(::fsync(file), 0);
    ::close(file);
}

bool clone(const fs::path& from, const fs::path& to) {
    const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int target = ::open(to.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const bool isCloned = ::ioctl(target, FICLONE, source) == 0;
    ::fsync(target);
    ::close(source);
    ::close(target);
    return isCloned;
}

class SharedExtents : public testing::TestWithParam<const char*> {};

TEST_P(SharedExtents, ClonesOwnNothingUntilTheyAreWritten) {
    const auto image = test::MountedImage::make({.type = GetParam()});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path folder = (*image)->path() / "data";
    fs::create_directory(folder);
    constexpr std::int64_t size = 4 << 20;
    write(folder / "alone", size);
    write(folder / "origin", size);
    if (!clone(folder / "origin", folder / "clone"))
        GTEST_SKIP() << GetParam() << " cannot clone here";
    write(folder / "half", size);
    ASSERT_TRUE(clone(folder / "half", folder / "half clone"));
    write(folder / "half clone", size / 2);

    const ScanResult shared = DiskScanner().scan(folder).get();
    const auto node = [&](const char* name) -> const FileNode& { return *shared.root->node(name); };
    for (const FileNode* child : shared.root->children()) {
        EXPECT_TRUE(child->reportsPrivateSize) << child->name();
        EXPECT_EQ(child->size, size) << child->name();
        EXPECT_GE(child->allocatedSize, size) << child->name();
    }
    EXPECT_EQ(node("alone").reclaimableSize, node("alone").allocatedSize);
    EXPECT_FALSE(node("alone").sharesBlocksWithClones());
    for (const char* name : {"origin", "clone"}) {
        EXPECT_EQ(node(name).reclaimableSize, 0) << name;
        EXPECT_EQ(node(name).extFlags, mayShareBlocksFlag | sharesAllBlocksFlag) << name;
        EXPECT_EQ(node(name).sharedWithClones(), node(name).allocatedSize) << name;
    }
    EXPECT_NEAR(static_cast<double>(node("half clone").reclaimableSize), size / 2.0, size / 20.0);
    EXPECT_EQ(node("half clone").extFlags, mayShareBlocksFlag);
    // Btrfs counts references of whole extents: as long as the clone uses a part of one, deleting the origin
    // frees none of it.
    const bool isWholeExtentShared = std::string(GetParam()) == "btrfs";
    EXPECT_NEAR(static_cast<double>(node("half").reclaimableSize), isWholeExtentShared ? 0 : size / 2.0,
                size / 20.0);
    EXPECT_TRUE(shared.root->includesSharedCloneBlocks);
    EXPECT_EQ(DiskScanner().measure(folder).get().reclaimableSize, shared.root->reclaimableSize);

    write(folder / "clone", size);
    write(folder / "half clone", size);
    const ScanResult whole = DiskScanner().scan(folder).get();
    for (const FileNode* child : whole.root->children()) {
        EXPECT_EQ(child->reclaimableSize, child->allocatedSize) << child->name();
        EXPECT_EQ(child->extFlags, 0u) << child->name();
    }
}

TEST_P(SharedExtents, FilesInManyPiecesAreReadWhole) {
    const auto image = test::MountedImage::make({.type = GetParam()});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path folder = (*image)->path() / "data";
    fs::create_directory(folder);
    // Every second block is a hole: far more extents than one call reports. The first 400 are cloned.
    constexpr std::int64_t block = 4096;
    const int file = ::open((folder / "pieces").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const std::string bytes(block, 'x');
    const auto writeBlocks = [&](int first, int end) {
        for (int index = first; index < end; ++index)
            ASSERT_EQ(::pwrite(file, bytes.data(), bytes.size(), index * 2 * block), block);
        ::fsync(file);
    };
    writeBlocks(0, 400);
    if (!clone(folder / "pieces", folder / "clone"))
        GTEST_SKIP() << GetParam() << " cannot clone here";
    writeBlocks(400, 1600);
    ::close(file);
    const ScanResult result = DiskScanner().scan(folder).get();
    const FileNode& pieces = *result.root->node("pieces");
    EXPECT_EQ(pieces.extFlags, mayShareBlocksFlag);
    EXPECT_NEAR(static_cast<double>(pieces.sharedWithClones()), 400.0 * block, 4.0 * block);
}

INSTANTIATE_TEST_SUITE_P(OnRealFileSystems, SharedExtents, testing::Values("btrfs", "xfs"),
                         [](const auto& kind) { return std::string(kind.param); });

} // namespace
} // namespace tarnwell
