// Trees that nobody made in good faith, and those that the system makes up.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Faults/Linux/FaultyProgram.hpp"
#include "Tests/Support/JSONListing.hpp"
#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::FaultyOutcome;
using test::MountedImage;
using test::TemporaryFolder;

constexpr std::int64_t largestSize = std::numeric_limits<std::int64_t>::max();

ScanResult scan(const fs::path& folder) {
    return ScanEngine(folder, {}).run();
}

bool canBeWatched() {
    return test::whyNotFaulty().empty();
}

/// The tool's run on a folder, watched where that is possible.
FaultyOutcome runTool(std::vector<std::string> arguments, std::size_t stackLimit = 0) {
    arguments.insert(arguments.begin(), TARNWELL_TOOL);
    return test::runWithFault(
        {.arguments = std::move(arguments), .stackLimit = stackLimit, .isWatched = canBeWatched()});
}

int openFolder(const fs::path& folder) {
    return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

TEST(HostileTrees, ManyNamesInOneFolderAndManyOfOneFile) {
    // In memory, files are made fast and may have any number of links.
    if (::access("/dev/shm", W_OK) != 0)
        GTEST_SKIP() << "no /dev/shm";
    const TemporaryFolder folder("/dev/shm");
    const int count = test::isThorough() ? 1'000'000 : 100'000;
    const int files = openFolder(folder.makeFolder("files"));
    const int links = openFolder(folder.makeFolder("links"));
    folder.makeFile("links/0", 5000);
    for (int index = 0; index < count; ++index) {
        const std::string name = std::to_string(index);
        ASSERT_EQ(::mknodat(files, name.c_str(), S_IFREG | 0644, 0), 0) << index;
        ASSERT_TRUE(index == 0 || ::linkat(links, "0", links, name.c_str(), 0) == 0) << index;
    }
    ::close(files);
    ::close(links);
    const ScanResult result = scan(folder.path());
    for (const char* name : {"files", "links"}) {
        const FileNode* parent = result.root->node(name);
        EXPECT_EQ(parent->fileCount(), count) << name;
        std::set<int> numbers;
        for (const FileNode* child : parent->children())
            numbers.insert(std::stoi(std::string(child->name())));
        EXPECT_EQ(numbers.size(), static_cast<std::size_t>(count)) << name;
    }
    EXPECT_EQ(result.root->size, 5000);
    EXPECT_EQ(result.stats.hardlinkDuplicateCount, count - 1);
    EXPECT_EQ(result.stats.hardlinkSavedBytes, 5000 * (count - std::int64_t{1}));
    EXPECT_FALSE(result.root->node("links/0")->isHardlinkDuplicate());
}

/// A folder on a file system of the kind that is the parameter.
class FileSystems : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        image_ = MountedImage::make({.type = GetParam()});
        if (!image_)
            GTEST_SKIP() << image_.error();
        folder = (*image_)->path() / "folder";
        fs::create_directories(folder / "inner");
    }

    fs::path folder;

private:
    std::expected<std::unique_ptr<MountedImage>, std::string> image_;
};

INSTANTIATE_TEST_SUITE_P(Real, FileSystems, testing::Values("tmpfs", "xfs", "btrfs"),
                         [](const auto& kind) { return std::string(kind.param); });

TEST_P(FileSystems, HugeFilesSumUpToTheLargestNumber) {
    test::makeSparse(folder / "nearly all", largestSize - 8192);
    test::makeSparse(folder / "inner/rest", 8192);
    fs::create_hard_link(folder / "nearly all", folder / "inner/again");
    const FaultyOutcome json = runTool({"scan", folder, "--json", "--depth=9", "--size-mode=apparent"});
    const auto items = test::readJSONListing(json.output);
    ASSERT_TRUE(items.has_value()) << json.error;
    EXPECT_EQ(items->totalSize, largestSize);
    EXPECT_EQ(items->totalAllocatedSize, 0);
    const FaultyOutcome listing = runTool({"scan", folder, "--size-mode=apparent"});
    EXPECT_EQ(listing.exitCode, 0);
    EXPECT_NE(listing.output.find("100.0%"), std::string::npos) << listing.output;
}

TEST_P(FileSystems, SpecialFilesAreNeverOpened) {
    // Where extents are shared, regular files are opened.
    test::makeSparse(folder / "file", 10);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0666), 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (folder / "socket").native().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(socket);
    ASSERT_EQ(::mknod((folder / "zeros").c_str(), S_IFCHR | 0666, ::makedev(1, 5)), 0);
    ASSERT_EQ(::mknod((folder / "memory disk").c_str(), S_IFBLK | 0666, ::makedev(1, 0)), 0);
    fs::create_symlink("zeros", folder / "link");
    const FaultyOutcome outcome = runTool({"scan", folder, "--csv"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_EQ(std::ranges::count(outcome.output, '\n'), 8);
    if (!canBeWatched())
        GTEST_SKIP() << "whether devices are opened cannot be told here";
    ASSERT_TRUE(outcome.report.contains("devices"));
    EXPECT_EQ(outcome.count("devices"), 0);
}

TEST(HostileTrees, ChainsAreNoMatterOfTheStack) {
    // 64 KiB of stack are less than 66 bytes for each of the levels. The sanitizer that bears no watching
    // needs more for itself.
    const std::size_t stack = canBeWatched() ? 64 << 10 : 0;
    constexpr int depth = 1'000;
    const TemporaryFolder folder;
    int parent = openFolder(folder.path());
    for (int level = 0; level < depth; ++level) {
        ASSERT_EQ(::mkdirat(parent, "ab", 0755), 0);
        const int next = ::openat(parent, "ab", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(parent);
        parent = next;
    }
    EXPECT_EQ(::mknodat(parent, "file", S_IFREG | 0644, 0), 0);
    ::close(parent);
    for (const char* form : {"--json", "--csv", "--depth=9999"}) {
        const FaultyOutcome outcome = runTool({"scan", folder.path(), "--depth=9999", form}, stack);
        EXPECT_EQ(outcome.exitCode, 0) << form << outcome.error;
        EXPECT_NE(outcome.output.find("file"), std::string::npos) << form;
    }
}

TEST(HostileTrees, WhatTheSystemMakesUpEnds) {
    for (const char* root : {"/proc", "/sys", "/dev"}) {
        const FaultyOutcome outcome = runTool({"scan", root, "--depth=2"});
        EXPECT_EQ(outcome.exitCode, 0) << root << outcome.error;
        EXPECT_EQ(outcome.count("devices"), 0) << root;
    }
}

/// Mounts that the test unmounts again, in a mount table of the thread's own.
class Mounts : public testing::Test {
protected:
    void SetUp() override {
        const auto image = MountedImage::make({.type = "tmpfs", .size = 10'000'000});
        if (!image)
            GTEST_SKIP() << image.error();
    }
    void TearDown() override {
        for (const std::string& point : points_)
            ::umount2(point.c_str(), MNT_DETACH);
    }
    bool mount(const char* source, const fs::path& point, const char* type, unsigned long flags,
               const std::string& options = {}) {
        points_.insert(points_.begin(), point.string());
        return ::mount(source, point.c_str(), type, flags, options.c_str()) == 0;
    }
    const TemporaryFolder& folder() const { return folder_; }

private:
    const TemporaryFolder folder_;
    std::vector<std::string> points_;
};

TEST_F(Mounts, BoundFoldersAreFoldersAndNoEndlessOnes) {
    folder().makeFile("source/file", 1000);
    folder().makeFile("source/inner/file", 10);
    folder().makeFolder("target");
    folder().makeFolder("itself");
    ASSERT_TRUE(mount((folder() / "source").c_str(), folder() / "target", "", MS_BIND));
    ASSERT_TRUE(mount(folder().path().c_str(), folder() / "itself", "", MS_BIND));
    const ScanResult result = scan(folder().path());
    // Of the same device, so a scan reads them where they are; below "itself", nothing is mounted.
    EXPECT_EQ(result.root->node("target")->size, 1010);
    EXPECT_EQ(result.root->node("itself")->size, 1010);
    EXPECT_EQ(result.root->size, 3030);
    EXPECT_EQ(result.stats.mountPointCount, 0);
    EXPECT_EQ(result.stats.inaccessibleCount, 0);
}

std::function<void(const std::string&)> beforeOpening; // called with the name
std::vector<std::string> openedFolders;

DirectoryCalls watchedCalls() {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.openFolder = [](int folder, const char* name, const std::int32_t* device) {
        openedFolders.emplace_back(name);
        if (beforeOpening)
            beforeOpening(name);
        return DirectoryCalls::live().openFolder(folder, name, device);
    };
    openedFolders.clear();
    return calls;
}

ScanOptions oneWorker() {
    ScanOptions options;
    options.workerCount = 1;
    return options;
}

TEST_F(Mounts, WhatIsMountedMeanwhileIsNotEntered) {
    folder().makeFile("victim/file", 100);
    folder().makeFile("stays/file", 30);
    const DirectoryCalls calls = watchedCalls();
    beforeOpening = [&](const std::string& name) {
        if (name != "victim")
            return;
        ASSERT_TRUE(mount("tarnwell-test", folder() / "victim", "tmpfs", 0));
        test::makeSparse(folder() / "victim" / "secret", 5000);
    };
    const ScanResult result = ScanEngine(folder().path(), oneWorker(), true, calls).run();
    beforeOpening = nullptr;
    EXPECT_EQ(result.root->size, 30);
    EXPECT_TRUE(result.root->node("victim")->flags.contains(FileNodeFlags::mountPoint));
    EXPECT_EQ(result.stats.mountPointCount, 1);
    EXPECT_EQ(result.stats.inaccessibleCount, 0);
}

TEST(HostileTrees, FoldersThatTheKernelCallsAutomountsAreNotOpened) {
    const TemporaryFolder folder;
    folder.makeFolder("trigger");
    folder.makeFile("stays/file", 30);
    DirectoryCalls calls = watchedCalls();
    calls.extendedStatus = [](int parent, const char* name, void* status) {
        const int result = DirectoryCalls::live().extendedStatus(parent, name, status);
        if (std::string_view(name) == "trigger")
            static_cast<struct statx*>(status)->stx_attributes |= STATX_ATTR_AUTOMOUNT;
        return result;
    };
    ScanOptions options = oneWorker();
    options.crossFilesystemBoundaries = true;
    const ScanResult result = ScanEngine(folder.path(), options, true, calls).run();
    EXPECT_EQ(result.root->size, 30);
    EXPECT_EQ(openedFolders, std::vector<std::string>{"stays"});
    EXPECT_TRUE(result.root->node("trigger")->flags.contains(FileNodeFlags::mountPoint));
    EXPECT_EQ(result.stats.directoryCount, 2);
}

/// Starts something as somebody other than who serves the automounts, which is their process group.
pid_t startAsStranger(const std::function<int()>& body) {
    const pid_t stranger = ::fork();
    if (stranger == 0) {
        ::setpgid(0, 0);
        ::_exit(body());
    }
    return stranger;
}

void expectToScanAsStranger(const fs::path& folder) {
    const pid_t stranger = startAsStranger([&] { return runTool({"scan", folder, "--depth=9"}).exitCode; });
    int status = 0;
    ::waitpid(stranger, &status, 0);
    EXPECT_EQ(status, 0) << folder;
}

TEST_F(Mounts, AutomountsAreNotTriggered) {
    folder().makeFile("file", 10);
    for (const char* kind : {"direct", "indirect"}) {
        SCOPED_TRACE(kind);
        const fs::path point = folder().makeFolder(kind);
        int requests[2];
        ASSERT_EQ(::pipe2(requests, O_CLOEXEC), 0);
        if (!mount("tarnwell-test", point, "autofs", 0,
                   "fd=" + std::to_string(requests[1]) + ",pgrp=" + std::to_string(::getpgrp()) +
                       ",minproto=5,maxproto=5," + kind))
            GTEST_SKIP() << "this kernel mounts no autofs";
        fs::path trigger = point;
        if (kind == std::string_view("indirect")) {
            trigger /= "trigger";
            ASSERT_EQ(::mkdir(trigger.c_str(), 0755), 0);
            expectToScanAsStranger(point);
        }
        expectToScanAsStranger(folder().path());
        pollfd asked = {.fd = requests[0], .events = POLLIN, .revents = 0};
        EXPECT_EQ(::poll(&asked, 1, 0), 0) << "the scan made the kernel ask for a mount";
        // Who opens the folder does, and waits.
        const pid_t opener = startAsStranger([&] { return ::open(trigger.c_str(), O_RDONLY | O_CLOEXEC); });
        EXPECT_EQ(::poll(&asked, 1, 60'000), 1);
        ::kill(opener, SIGKILL);
        ::waitpid(opener, nullptr, 0);
        ::close(requests[0]);
        ::close(requests[1]);
    }
}

} // namespace
} // namespace tarnwell
