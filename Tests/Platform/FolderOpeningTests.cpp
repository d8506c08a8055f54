#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;

using test::TemporaryFolder;

TEST(FolderOpening, NothingLeadsElsewhere) {
    const TemporaryFolder outside;
    outside.makeFolder("b/c");
    const TemporaryFolder folder;
    // Longer than what is opened in one go, so that a link may stand in any of the pieces.
    const std::string longName(200, 'n');
    const std::string way = longName + "/" + longName + "/" + longName + "/" + longName + "/" + longName;
    folder.makeFolder("a/b/c");
    folder.makeFolder(way + "/b/c");
    folder.makeFile("file");
    fs::create_directory_symlink(outside.path(), folder / "link");
    fs::create_directory_symlink(outside.path(), folder / "a/link");
    fs::create_directory_symlink(outside.path(), folder / way / "link");
    fs::create_directory_symlink("a", folder / "link within");
    const struct {
        std::string path;
        bool isOpened;
    } cases[] = {
        {"a", true},
        {"a/b/c", true},
        {way + "/b/c", true},
        {"link", false},
        {"link/b/c", false},
        {"a/link", false},
        {"file", false},
        {"file/b", false},
        {"missing/b", false},
        {way + "/link", false},
        {way + "/link/b/c", false},
        {"link within/b", false},
    };
    const int root = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat rootStatus = {};
    ASSERT_EQ(::fstat(root, &rootStatus), 0);
    const std::int32_t device = entryFromStatus(rootStatus).deviceID;
    for (const auto& each : cases) {
        for (const std::int32_t* wanted : {static_cast<const std::int32_t*>(nullptr), &device}) {
            const int opened = openFolderBelow(root, each.path, wanted);
            EXPECT_EQ(opened >= 0, each.isOpened) << each.path << ": " << std::strerror(errno);
            struct stat found = {};
            struct stat expected = {};
            if (opened >= 0) {
                EXPECT_EQ(::fstat(opened, &found), 0);
                EXPECT_EQ(::stat((folder / each.path).c_str(), &expected), 0);
                EXPECT_EQ(found.st_ino, expected.st_ino) << each.path;
                ::close(opened);
            }
        }
    }
    ::close(root);
}

} // namespace
} // namespace tarnwell
