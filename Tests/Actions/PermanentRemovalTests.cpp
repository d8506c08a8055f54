// Deleting for good, and emptying Trash folders: what must go goes, and nothing else.

#include "TarnwellCore/Actions/PermanentRemoval.hpp"
#include "TarnwellCore/Actions/TrashEmptying.hpp"
#include "TarnwellCore/Platform/Trash.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::TemporaryFolder;

TEST(PermanentRemoval, WholeTreesGoAndLinksLeadNowhere) {
    const TemporaryFolder folder;
    const fs::path kept = folder.makeFile("kept/precious", 10);
    folder.makeFile("tree/a/b/file", 10);
    folder.makeFile("tree/locked/inner/file", 10);
    folder.makeFolder("tree/empty");
    fs::create_directory_symlink(folder / "kept", folder / "tree/a/link");
    fs::create_directory_symlink(folder / "kept", folder / "way");
    ASSERT_EQ(::mkfifo((folder / "tree/fifo").c_str(), 0600), 0);
    ::chmod((folder / "tree/locked/inner").c_str(), 0);
    ::chmod((folder / "tree/locked").c_str(), 0500);
    const RemovalResult result = PermanentRemoval::remove(folder / "tree/");
    EXPECT_TRUE(result.isComplete);
    EXPECT_EQ(result.removedCount, 10);
    EXPECT_FALSE(fs::exists(folder / "tree"));
    EXPECT_TRUE(PermanentRemoval::remove(folder / "way").isComplete) << "a link goes itself";
    EXPECT_FALSE(PermanentRemoval::removeContents(folder / "way").isComplete);
    EXPECT_TRUE(fs::exists(kept));
    for (const char* bad : {".", "..", "/"})
        EXPECT_FALSE(PermanentRemoval::remove(bad).isComplete) << bad;
    CancellationToken token;
    token.cancel();
    EXPECT_TRUE(PermanentRemoval::remove(kept, token).wasCancelled);
    EXPECT_TRUE(fs::exists(kept));
}

TEST(PermanentRemoval, DeeperThanAnyPath) {
    const TemporaryFolder folder;
    int current = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY);
    const std::string name(100, 'x');
    for (int level = 0; level < 10'000; ++level) {
        ASSERT_EQ(::mkdirat(current, name.c_str(), 0700), 0);
        const int next = ::openat(current, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(current);
        current = next;
    }
    ::close(current);
    const RemovalResult result = PermanentRemoval::removeContents(folder.path());
    EXPECT_TRUE(result.isComplete);
    EXPECT_EQ(result.removedCount, 10'000);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(TrashEmptying, NotesGoWithTheirItemsOnly) {
    const TemporaryFolder folder;
    folder.makeFile("Trash/files/a/inner", 10);
    folder.makeFile("Trash/files/b", 10);
    folder.makeFile("Trash/info/a.trashinfo", 10);
    folder.makeFile("Trash/info/b.trashinfo", 10);
    folder.makeFile("Trash/info/other", 10);
    folder.makeFile("Trash/info/coming.trashinfo", 10); // its item follows
    const fs::path lost = folder.makeFile("Trash/info/lost.trashinfo", 10);
    fs::last_write_time(lost, fs::last_write_time(lost) - std::chrono::hours(1));
    folder.makeFile("plain/info/c.trashinfo", 10);
    const std::vector<fs::path> folders = {folder / "Trash/files/", folder / "missing", folder / "plain"};
    EXPECT_EQ(emptyTrashFolders(folders), EmptyTrashOutcome(EmptyTrashEmptied{}));
    EXPECT_TRUE(fs::is_empty(folder / "Trash/files"));
    EXPECT_FALSE(fs::exists(folder / "Trash/info/a.trashinfo"));
    EXPECT_FALSE(fs::exists(lost));
    EXPECT_TRUE(fs::exists(folder / "Trash/info/coming.trashinfo"));
    EXPECT_TRUE(fs::exists(folder / "Trash/info/other"));
    EXPECT_TRUE(fs::is_empty(folder / "plain"));
}

/// What anybody can put on a volume that all may write to.
TEST(TrashEmptying, ALinkInPlaceOfAVolumesTrashLeadsNowhere) {
    const TemporaryFolder folder;
    const fs::path linked = volumeTrashDirectories(folder / "linked", ::getuid()).back();
    const fs::path own = volumeTrashDirectories(folder / "own", ::getuid()).back();
    const fs::path inVolume = linked.lexically_relative(folder / "linked");
    const fs::path link = (folder / "linked") / *inVolume.begin();
    const fs::path kept = (folder / "project") / linked.lexically_relative(link) / "precious";
    const fs::path gone = own / "old";
    for (const fs::path& file : {kept, gone})
        folder.makeFile(file.lexically_relative(folder.path()).native(), 10);
    folder.makeFolder("linked");
    fs::create_directory_symlink(folder / "project", link);
    ASSERT_TRUE(fs::exists(linked / "precious"));
    EXPECT_EQ(emptyTrashFolders({linked, own}), EmptyTrashOutcome(EmptyTrashEmptied{}));
    EXPECT_TRUE(fs::exists(kept));
    EXPECT_FALSE(fs::exists(gone));
}

TEST(TrashEmptying, ALinkThatIsPutThereInThatMomentLeadsNowhere) {
    const TemporaryFolder folder;
    const fs::path trash = volumeTrashDirectories(folder / "volume", ::getuid()).back();
    const fs::path below = trash.lexically_relative(folder / "volume");
    const fs::path top = (folder / "volume") / *below.begin();
    const fs::path aside = folder / "volume/aside";
    const fs::path link = folder / "volume/link";
    const std::string old = trash.lexically_relative(folder.path()) / "old";
    const fs::path kept = (folder / "project") / below.lexically_relative(*below.begin()) / "precious";
    folder.makeFile(kept.lexically_relative(folder.path()).native(), 10);
    fs::create_directories(trash);
    fs::create_directory_symlink(folder / "project", link);
    std::atomic<bool> isDone = false;
    std::thread other([&] {
        while (!isDone) {
            ::rename(top.c_str(), aside.c_str());
            ::rename(link.c_str(), top.c_str());
            ::rename(top.c_str(), link.c_str());
            ::rename(aside.c_str(), top.c_str());
        }
    });
    int emptied = 0;
    for (int round = 0; round < 3'000 && fs::exists(kept); ++round) {
        const int file = ::open((folder / old).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600); // or nowhere
        ::close(file);
        (void)emptyTrashFolders({trash});
        emptied += file >= 0 && ::access((folder / old).c_str(), F_OK) != 0 ? 1 : 0;
    }
    isDone = true;
    other.join();
    EXPECT_TRUE(fs::exists(kept));
    EXPECT_GT(emptied, 0);
    EXPECT_EQ(emptyTrashFolders({trash}), EmptyTrashOutcome(EmptyTrashEmptied{}));
    EXPECT_TRUE(fs::is_empty(trash));
}

} // namespace
} // namespace tarnwell
