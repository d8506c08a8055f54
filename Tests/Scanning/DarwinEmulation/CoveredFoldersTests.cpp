// Mount points and what is like them, over a kernel whose listings tell of the folder that is covered.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/DarwinEmulation/EmulatedKernel.hpp"
#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;

using test::EmulatedKernel;

constexpr std::uint32_t mountStatus = 4;

class CoveredFolders : public testing::Test {
protected:
    void SetUp() override {
        if (!image_)
            GTEST_SKIP() << image_.error();
        fs::create_directories(mountPoint() / "inner");
        std::ofstream(mountPoint() / "inner/file") << "12345";
    }

    const fs::path& mountPoint() const { return (*image_)->path(); }
    ScanResult scan(bool crosses = false) const {
        ScanOptions options;
        options.crossFilesystemBoundaries = crosses;
        return ScanEngine(mountPoint().parent_path(), options).run();
    }

private:
    const std::expected<std::unique_ptr<test::MountedImage>, std::string> image_ =
        test::MountedImage::make({.type = "tmpfs"});
};

TEST_F(CoveredFolders, AreKnownByWhateverTheKernelTells) {
    const struct {
        std::uint32_t withheldDirectory;
        bool tellsMounts;
        bool isTouched;
    } cases[] = {{0, true, false}, {0, false, false}, {mountStatus, true, false}, {mountStatus, false, true}};
    for (const auto& each : cases) {
        // A device that no folder is on: records are not believed.
        EmulatedKernel kernel(
            {.withheldDirectory = each.withheldDirectory, .device = 77, .tellsMounts = each.tellsMounts});
        kernel.describe(mountPoint(), {});
        const ScanResult result = scan();
        EXPECT_EQ(kernel.wasTouched(mountPoint()), each.isTouched);
        EXPECT_EQ(result.root->node("volume")->flags, FileNodeFlags::mountPoint);
        EXPECT_EQ(result.stats.mountPointCount, 1);
        EXPECT_EQ(result.stats.inaccessibleCount, 0);

        const ScanResult crossing = scan(true);
        EXPECT_EQ(crossing.root->node("volume")->flags, FileNodeFlags::mountPoint);
        EXPECT_EQ(crossing.root->node("volume/inner")->size, 5);
        EXPECT_EQ(crossing.stats.mountPointCount, 1);
    }
}

TEST_F(CoveredFolders, FirmlinksArePassedThoughTheyLeadToAnotherDevice) {
    EmulatedKernel kernel;
    kernel.describe(mountPoint(), {.flags = firmlinkFileFlag});
    const ScanResult result = scan();
    EXPECT_EQ(result.root->node("volume/inner")->size, 5);
    EXPECT_EQ(result.stats.mountPointCount, 0);
    EXPECT_EQ(result.root->node("volume")->flags, FileNodeFlags());
    EXPECT_EQ(result.root->node("volume/inner")->flags, FileNodeFlags());
}

TEST(Triggers, AreNeverOpened) {
    const test::TemporaryFolder folder;
    const fs::path trigger = folder.makeFolder("trigger");
    EmulatedKernel kernel;
    kernel.describe(trigger, {.isTrigger = true});
    for (const bool crosses : {false, true}) {
        ScanOptions options;
        options.crossFilesystemBoundaries = crosses;
        const ScanResult result = ScanEngine(folder.path(), options).run();
        EXPECT_EQ(result.root->node("trigger")->flags, FileNodeFlags::mountPoint);
        EXPECT_FALSE(kernel.wasTouched(trigger));
    }
}

TEST(DatalessFolders, AreLeavesThatNobodyOpens) {
    const test::TemporaryFolder folder;
    folder.makeFile("cloud.app/away/file", 10);
    folder.makeFile("cloud.app/here", 20);
    const fs::path away = folder / "cloud.app/away";
    EmulatedKernel kernel;
    kernel.describe(away, {.flags = datalessFileFlag, .privateSize = 30});
    for (const bool descends : {false, true}) {
        ScanOptions options;
        options.descendIntoPackages = descends;
        const ScanResult result = ScanEngine(folder.path(), options).run();
        const FileNode& package = *result.root->node("cloud.app");
        EXPECT_EQ(package.size, 20);
        EXPECT_EQ(package.directoryCount(), 1);
        EXPECT_EQ(result.stats.directoryCount, 2);
        EXPECT_EQ(result.stats.inaccessibleCount, 0);
        if (descends) {
            EXPECT_EQ(package.node("away")->flags, FileNodeFlags::dataless);
            EXPECT_TRUE(package.node("away")->children().empty());
        }
    }
    EXPECT_FALSE(kernel.wasTouched(away));

    const ScanResult root = ScanEngine(away, {}).run();
    EXPECT_EQ(root.root->flags, FileNodeFlags::dataless);
    EXPECT_EQ(root.stats, ScanStats());
    EXPECT_EQ(kernel.fetches(), 0);
}

std::function<void()> beforeOpening;

TEST(DatalessFolders, ThatLoseTheirContentsMeanwhileAreNotFetched) {
    const test::TemporaryFolder folder;
    folder.makeFile("cloud/file", 10);
    EmulatedKernel kernel;
    const fs::path evicted = folder / "cloud";
    beforeOpening = [&] { kernel.describe(evicted, {.flags = datalessFileFlag}); };
    DirectoryCalls calls = DirectoryCalls::live();
    calls.openFolder = [](int parent, const char* name, const std::int32_t* device) {
        beforeOpening();
        return DirectoryCalls::live().openFolder(parent, name, device);
    };
    for (const int workers : {1, 4}) {
        ScanOptions options;
        options.workerCount = workers;
        kernel.describe(evicted, {});
        const ScanResult result = ScanEngine(folder.path(), options, true, calls).run();
        EXPECT_EQ(result.root->node("cloud")->flags, FileNodeFlags::inaccessible);
        EXPECT_EQ(kernel.fetches(), 0);
    }
    // Other work of this thread is not held back.
    const int parent = ::open(folder.path().c_str(), O_RDONLY | O_CLOEXEC);
    ::close(calls.openFolder(parent, "cloud", nullptr));
    ::close(parent);
    beforeOpening = nullptr;
    EXPECT_EQ(kernel.fetches(), 1);
}

} // namespace
} // namespace tarnwell
