// With a folder of the test's own as "/", as in a chroot: what scans and volumes make of such a system.

#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace tarnwell {
namespace {

class ChangedRoot : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0)
            GTEST_SKIP() << "only root may change it";
    }

    /// The size of the tree at "/" and what of it is left out.
    std::string scanned() const {
        return test::runBelow(folder.path(), [] {
            ScanOptions options;
            options.workerCount = 1;
            const ScanResult result = ScanEngine("/", options, true).run();
            std::string text = std::to_string(result.root->size);
            for (const FileNode* child : result.root->children())
                if (child->flags.contains(FileNodeFlags::excluded))
                    text += " without " + std::string(child->name());
            return text;
        });
    }

    const test::TemporaryFolder folder;
};

TEST_F(ChangedRoot, HomeIsReadUnlessAnAutomounterServesIt) {
    (void)folder.makeFile("home/alice/file", 3'000);
    (void)folder.makeFile("net/file", 500);
    EXPECT_EQ(scanned(), "3000 without net");

    const std::filesystem::path home = folder / "home";
    int requests[2];
    ASSERT_EQ(::pipe2(requests, O_CLOEXEC), 0);
    const std::string options = "fd=" + std::to_string(requests[1]) + ",pgrp=" + std::to_string(::getpgrp()) +
                                ",minproto=5,maxproto=5,indirect";
    if (::mount("tarnwell-test", home.c_str(), "autofs", 0, options.c_str()) != 0)
        GTEST_SKIP() << "this kernel mounts no autofs";
    const std::string withAutomounter = scanned();
    EXPECT_EQ(::umount2(home.c_str(), MNT_DETACH), 0);
    ::close(requests[0]);
    ::close(requests[1]);
    EXPECT_EQ(withAutomounter, "0 without home without net");
}

TEST_F(ChangedRoot, ItsVolumeIsTheOneThatStatvfsTells) {
    (void)folder.makeFile("sub/file");
    const std::string volumes = test::runBelow(folder.path(), [] {
        const auto boot = DiskInfo::bootVolume();
        const auto all = DiskInfo::mountedVolumes(false);
        const auto holding = DiskInfo::volumeContaining("/sub/file");
        struct statvfs figures = {};
        if (!boot || !holding || all.empty() || ::statvfs("/", &figures) != 0)
            return std::string("none");
        const auto capacity = static_cast<std::int64_t>(figures.f_blocks * figures.f_frsize);
        return holding->path + " " + all.front().path + " " + (boot->isBrowsable ? "shown" : "hidden") + " " +
               (boot->totalCapacity == capacity ? "right" : "wrong") + " " +
               DiskInfo::fileSystemStatistics("/sub/file").value_or(DiskInfo::FileSystemStatistics()).type;
    });
    EXPECT_EQ(volumes, "/ / shown right " + DiskInfo::fileSystemStatistics(folder.path())->type);
}

} // namespace
} // namespace tarnwell
