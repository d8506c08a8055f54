#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/MountedImage.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;

TEST(MountPoints, AreCrossedOnlyOnRequest) {
    const auto image = test::MountedImage::make({.type = "tmpfs", .name = "other device"});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path mountPoint = (*image)->path();
    fs::create_directories(mountPoint / "a/b");
    std::ofstream(mountPoint / "a/b/file") << std::string(1000, 'x');
    fs::create_hard_link(mountPoint / "a/b/file", mountPoint / "a/link");
    const fs::path folder = mountPoint.parent_path();
    for (const bool crosses : {false, true}) {
        for (const bool buildsTree : {false, true}) {
            ScanOptions options;
            options.crossFilesystemBoundaries = crosses;
            const ScanResult result = ScanEngine(folder, options, buildsTree).run();
            EXPECT_EQ(result.stats.mountPointCount, 1);
            EXPECT_EQ(result.stats.inaccessibleCount, 0);
            EXPECT_EQ(result.stats.hardlinkDuplicateCount, crosses ? 1 : 0);
            if (!buildsTree)
                continue;
            const FileNode& node = *result.root->node("other device");
            EXPECT_TRUE(node.flags.contains(FileNodeFlags::mountPoint));
            ASSERT_EQ(node.children().empty(), !crosses);
            if (crosses) {
                EXPECT_EQ(node.node("a")->size, 1000);
                EXPECT_FALSE(node.node("a")->flags.contains(FileNodeFlags::mountPoint));
                EXPECT_FALSE(node.node("a/b")->flags.contains(FileNodeFlags::mountPoint));
            }
        }
    }
}

} // namespace
} // namespace tarnwell
