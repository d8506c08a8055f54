// Scans of trees that another process keeps changing: seconds, or minutes in the thorough form. Each also as
// on an older kernel, where folders are opened another way.

#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Faults/Linux/FaultyProgram.hpp"
#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/btrfs.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::MountedImage;
using test::TemporaryFolder;

/// What no scan may find: far more than all that is there to be found.
constexpr std::int64_t secretSize = 1'000'000'000'000;

/// Another process, which does the same again and again until this is gone.
class Meanwhile {
public:
    explicit Meanwhile(const std::function<void(int round)>& change) : process_(::fork()) {
        if (process_ == 0)
            for (int round = 0;; ++round)
                change(round);
    }
    ~Meanwhile() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;

private:
    pid_t process_;
};

/// Scans often, or for a minute.
void scanAgainAndAgain(const fs::path& folder) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    for (int round = 0; test::isThorough() ? std::chrono::steady_clock::now() < end : round < 150; ++round) {
        ScanOptions options;
        options.workerCount = 1 + round % 4;
        const ScanResult result = ScanEngine(folder, options).run();
        EXPECT_LT(result.root->size, secretSize);
        EXPECT_EQ(result.root->node("steady")->size, 1234);
        EXPECT_EQ(result.stats.totalSize, result.root->size);
        EXPECT_EQ(result.stats.fileCount, result.root->fileCount());
        EXPECT_EQ(result.stats.directoryCount, result.root->directoryCount());
        if (testing::Test::HasFailure())
            return;
    }
}

/// Makes the kernel say to this process that it has no `openat2`, as before Linux 5.6. Whether it does now.
bool loseOpenat2() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {.len = std::size(program), .filter = program};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0 &&
           ::syscall(SYS_openat2, AT_FDCWD, "/", nullptr, 0) == -1 && errno == ENOSYS;
}

enum class Kernel { present, older };

class ChangingTrees : public testing::TestWithParam<Kernel> {
protected:
    static void onKernel(const std::function<void()>& body) {
        if (GetParam() == Kernel::present)
            return body();
        constexpr int cannotLose = 77;
        std::fflush(nullptr);
        const pid_t process = ::fork();
        if (process == 0) {
            if (!loseOpenat2())
                ::_exit(cannotLose);
            body();
            std::fflush(nullptr);
            ::_exit(testing::Test::HasFailure() ? 1 : 0);
        }
        int status = 0;
        ::waitpid(process, &status, 0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == cannotLose)
            GTEST_SKIP() << "no call can be taken from a process here";
        EXPECT_EQ(status, 0) << "see above";
    }
};

INSTANTIATE_TEST_SUITE_P(OnKernels, ChangingTrees, testing::Values(Kernel::present, Kernel::older),
                         [](const auto& kernel) {
                             return std::string(kernel.param == Kernel::present ? "present" : "older");
                         });

TEST_P(ChangingTrees, LinksPlantedInPlaceOfFoldersLeadNowhere) {
    // At every level of a deep tree a folder and a link to the tree of secrets, made alike, change places.
    constexpr int depth = 30;
    const TemporaryFolder outside;
    const TemporaryFolder folder;
    folder.makeFile("steady/file", 1234);
    fs::path inner = folder.path();
    fs::path secret = outside.path();
    for (int level = 0; level < depth; ++level) {
        inner /= "folder";
        secret /= "folder";
        fs::create_directories(inner);
        fs::create_directories(secret);
        (void)folder.makeFile((inner.lexically_relative(folder.path()) / "file").string(), 10);
        test::makeSparse(secret / "secret", secretSize);
        fs::create_symlink(secret, inner.parent_path() / "link");
    }
    const Meanwhile swaps([&](int round) {
        fs::path parent = folder.path();
        for (int level = 0; level < round * 7 % depth; ++level)
            parent /= "folder";
        const fs::path one = parent / "folder";
        const fs::path other = parent / "link";
        (void)::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
        (void)::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
    });
    onKernel([&] { scanAgainAndAgain(folder.path()); });
}

TEST_P(ChangingTrees, EverythingChangesTypeVanishesAndComesBack) {
    const bool mayMount = MountedImage::make({.type = "tmpfs", .size = 10'000'000}).has_value();
    const TemporaryFolder outside;
    test::makeSparse(outside / "secret", secretSize);
    const TemporaryFolder folder;
    folder.makeFile("steady/file", 1234);
    folder.makeFile("busy/keeps/file", 10);
    const Meanwhile changes([&](int round) {
        const fs::path place = folder / "busy" / std::to_string(round % 5);
        std::error_code ignored;
        if (::umount2(place.c_str(), MNT_DETACH) != 0)
            fs::remove_all(place, ignored);
        switch (round * 7 % 6) {
        case 0:
            ::mkfifo(place.c_str(), 0644);
            break;
        case 1:
            fs::create_symlink(outside.path(), place, ignored);
            break;
        case 2:
            test::makeSparse(place, 100);
            break;
        case 3:
            fs::create_directories(place, ignored);
            if (mayMount && ::mount("tarnwell-test", place.c_str(), "tmpfs", 0, nullptr) == 0)
                test::makeSparse(place / "secret", secretSize);
            break;
        default:
            fs::create_directories(place / "a" / "b" / "c", ignored);
            test::makeSparse(place / "a" / "b" / "file", 100);
            fs::rename(place / "a", folder / "busy" / "moved", ignored);
            break;
        }
    });
    onKernel([&] { scanAgainAndAgain(folder.path()); });
    for (int place = 0; place < 5; ++place)
        ::umount2((folder / "busy" / std::to_string(place)).c_str(), MNT_DETACH);
}

/// Adds folders and links to a folder in which "point" lies on another device. Expects that only what belongs
/// to it is opened, "point" where no device is asked for, and that no descriptor is left over.
void expectNothingElseIsOpened(const fs::path& folder) {
    fs::create_directories(folder / "plain" / "inner");
    fs::create_directory_symlink("plain", folder / "link");
    fs::create_directory_symlink("inner", folder / "plain" / "link");
    const int parent = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int root = ::open(folder.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string point = folder.filename().string() + "/point";
    struct stat status = {};
    ASSERT_EQ(::fstat(parent, &status), 0);
    const std::int32_t device = entryFromStatus(status).deviceID;
    const auto isOpened = [](int opened) { return opened >= 0 && ::close(opened) == 0; };
    const int nextDescriptor = ::dup(parent);
    ::close(nextDescriptor);
    for (const std::int32_t* wanted : {&device, static_cast<const std::int32_t*>(nullptr)}) {
        const std::pair<const char*, bool> names[] = {
            {"plain", true}, {"link", false}, {"point", wanted == nullptr}};
        for (const auto& [name, isExpected] : names) {
            EXPECT_EQ(isOpened(openSubfolder(parent, name, wanted)), isExpected) << name;
            EXPECT_EQ(isOpened(openFolderBelow(parent, name, wanted)), isExpected) << name;
        }
        EXPECT_EQ(isOpened(openFolderBelow(root, point, wanted)), wanted == nullptr);
        EXPECT_TRUE(isOpened(openFolderBelow(parent, "plain/inner", wanted)));
        EXPECT_FALSE(isOpened(openFolderBelow(parent, "link/inner", wanted)));
        EXPECT_FALSE(isOpened(openFolderBelow(parent, "plain/link", wanted)));
    }
    EXPECT_EQ(::dup(parent), nextDescriptor);
    ::close(nextDescriptor);
    ::close(root);
    ::close(parent);
}

TEST_P(ChangingTrees, FoldersOnWhichSomethingIsMountedAreNotOpened) {
    if (!MountedImage::make({.type = "tmpfs", .size = 10'000'000}))
        GTEST_SKIP() << "nothing can be mounted here";
    const TemporaryFolder folder;
    const fs::path point = folder.makeFolder("parent/point");
    ASSERT_EQ(::mount("tarnwell-test", point.c_str(), "tmpfs", 0, nullptr), 0);
    onKernel([&] { expectNothingElseIsOpened(folder / "parent"); });
    ::umount2(point.c_str(), MNT_DETACH);
}

TEST_P(ChangingTrees, SubvolumesAreNotOpened) {
    const auto image = MountedImage::make({.type = "btrfs"});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path parent = (*image)->path() / "parent";
    fs::create_directory(parent);
    const int folder = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    btrfs_ioctl_vol_args subvolume = {.fd = 0, .name = "point"};
    ASSERT_EQ(::ioctl(folder, BTRFS_IOC_SUBVOL_CREATE, &subvolume), 0);
    ::close(folder);
    onKernel([&] { expectNothingElseIsOpened(parent); });
}

} // namespace
} // namespace tarnwell
