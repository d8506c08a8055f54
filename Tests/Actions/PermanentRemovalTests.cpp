// Deleting for good, and emptying Trash folders: what must go goes, and nothing else.

#include "TarnwellCore/Actions/PermanentRemoval.hpp"
#include "TarnwellCore/Actions/TrashEmptying.hpp"
#include "TarnwellCore/Platform/Trash.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

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
    folder.makeFile("plain/info/c.trashinfo", 10);
    const std::vector<fs::path> folders = {folder / "Trash/files/", folder / "missing", folder / "plain"};
    EXPECT_EQ(emptyTrashFolders(folders), EmptyTrashOutcome(EmptyTrashEmptied{}));
    EXPECT_TRUE(fs::is_empty(folder / "Trash/files"));
    EXPECT_FALSE(fs::exists(folder / "Trash/info/a.trashinfo"));
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

} // namespace
} // namespace tarnwell
