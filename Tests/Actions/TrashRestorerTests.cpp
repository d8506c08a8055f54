// Back from a Trash that is a plain folder; what the desktop's notes add is in Linux/RestoredTrashTests.

#include "TarnwellCore/Actions/TrashRestorer.hpp"
#include "TarnwellCore/Actions/TrashService.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::readFile;
using test::TemporaryFolder;
using testing::ElementsAre;

class TrashRestorerTests : public testing::Test {
protected:
    TrashRestorerTests() {
        fs::create_directory(trash);
        service.journal = TrashJournal(folder / "journal.txt");
        service.trashItem = [this](const fs::path& item) {
            fs::path landed = trash / item.filename();
            while (fs::exists(fs::symlink_status(landed)))
                landed += "x";
            fs::rename(item, landed);
            return std::optional(landed);
        };
        restorer.trashFolders = [this](const fs::path&) { return std::vector<fs::path>{trash}; };
    }

    std::vector<fs::path> moveToTrash(const std::vector<fs::path>& items) {
        std::vector<fs::path> landed;
        for (const TrashOutcome& outcome : service.moveToTrash(items).get()) {
            EXPECT_TRUE(outcome.succeeded()) << outcome.failure.value_or("");
            landed.push_back(outcome.trashedTo.value_or(""));
        }
        return landed;
    }
    RestoreOutcome restore(const fs::path& location) { return restorer.restore({location}).get().front(); }

    TemporaryFolder folder;
    fs::path trash = folder / "trash";
    TrashService service{folder.path()};
    /// Knows only what the file tells, as another process would.
    TrashRestorer restorer{folder.path(), TrashJournal(folder / "journal.txt")};
};

TEST_F(TrashRestorerTests, ASetGoesBackWhereItWas) {
    folder.writeFile("deep/er/inner.txt", "inner");
    folder.writeFile("deep/er/left.txt", "left");
    fs::create_symlink("/nowhere", folder / "link");
    const std::vector<fs::path> items{folder / "deep/er/inner.txt", folder / "deep/er", folder / "link"};
    const auto landed = moveToTrash(items);
    fs::remove_all(folder / "deep");

    const TrashListing listing = restorer.list().get();
    ASSERT_EQ(listing.items.size(), 3u);
    std::vector<fs::path> originals;
    for (const TrashedItem& item : listing.items) {
        EXPECT_EQ(item.set, listing.items[0].set);
        EXPECT_EQ(item.isFolder, item.original == items[1]);
        originals.push_back(item.original.value_or(""));
    }
    EXPECT_THAT(originals, testing::UnorderedElementsAreArray(items));

    const auto outcomes = restorer.restoreSet(listing.items[0].set.value()).get();
    ASSERT_EQ(outcomes.size(), 3u);
    for (std::size_t index = 0; index < items.size(); ++index)
        EXPECT_EQ(outcomes[index], (RestoreOutcome{.source = landed[index], .restoredTo = items[index]}));
    EXPECT_EQ(readFile(folder / "deep/er/inner.txt"), "inner");
    EXPECT_EQ(fs::read_symlink(folder / "link"), "/nowhere");
    EXPECT_TRUE(TrashJournal(folder / "journal.txt").entries().empty());
    EXPECT_TRUE(restorer.list().get().items.empty());
    EXPECT_TRUE(restorer.restoreSet(UUID::random()).get().empty());
}

TEST_F(TrashRestorerTests, NothingIsEverReplaced) {
    const std::string longName = std::string(240, 'n') + ".\xC3\xA4.txt";
    for (const std::string name : {"report.pdf", "none", ".hidden", longName.c_str()}) {
        SCOPED_TRACE(name);
        const fs::path item = folder.writeFile(name, "old");
        const auto landed = moveToTrash({item});
        folder.makeFolder(name); // an empty folder is something, too
        const RestoreOutcome first = restore(landed[0]);
        ASSERT_TRUE(first.succeeded()) << *first.failure;
        EXPECT_TRUE(first.hasOtherName);
        EXPECT_EQ(readFile(*first.restoredTo), "old");
        fs::remove(item);

        folder.writeFile(name, "older");
        const auto again = moveToTrash({item});
        folder.writeFile(name, "new");
        const RestoreOutcome second = restore(again[0]);
        ASSERT_TRUE(second.succeeded()) << *second.failure;
        EXPECT_NE(second.restoredTo, first.restoredTo);
        EXPECT_EQ(readFile(*second.restoredTo), "older");
        EXPECT_EQ(readFile(item), "new");
    }
    EXPECT_TRUE(fs::exists(folder / "report (restored).pdf"));
    EXPECT_TRUE(fs::exists(folder / "report (restored 2).pdf"));
    EXPECT_TRUE(fs::exists(folder / ".hidden (restored)"));
}

TEST_F(TrashRestorerTests, WhatIsNotTheItemStays) {
    const auto landed =
        moveToTrash({folder.writeFile("a", "1"), folder.writeFile("b", "2"), folder.makeFolder("c")});
    fs::remove(landed[0]);
    fs::remove(landed[1]);
    folder.writeFile("other", "another");
    fs::rename(folder / "other", landed[1]);
    fs::remove(landed[2]);
    fs::create_directory_symlink("/", landed[2]);
    const fs::path stranger = folder.writeFile("trash/stranger", "x");
    const auto outcomes =
        restorer.restore({landed[0], landed[1], landed[2], stranger, folder / "nowhere/x", "relative", ""})
            .get();
    std::vector<std::optional<RestoreRefusal>> refusals;
    for (const RestoreOutcome& outcome : outcomes) {
        EXPECT_FALSE(outcome.succeeded()) << outcome.source;
        refusals.push_back(outcome.refusal);
    }
    using enum RestoreRefusal;
    EXPECT_THAT(refusals,
                ElementsAre(notThere, changed, changed, unknownOrigin, notThere, std::nullopt, std::nullopt));
    EXPECT_EQ(readFile(landed[1]), "another");
    // The journal forgets them.
    EXPECT_EQ(restorer.list().get().items.size(), 3u);
    EXPECT_TRUE(TrashJournal(folder / "journal.txt").entries().empty());

    // Swapped at the very moment.
    const auto swapped = moveToTrash({folder.writeFile("d", "mine")});
    restorer.move = [&](int from, const char* name, int to, const char* newName) {
        if (fs::exists(swapped[0]) && readFile(swapped[0]) == "mine") {
            fs::rename(swapped[0], folder / "kept");
            folder.writeFile("trash/d", "theirs");
        }
        return moveExclusively(from, name, to, newName);
    };
    EXPECT_EQ(restore(swapped[0]).refusal, changed);
    EXPECT_EQ(readFile(swapped[0]), "theirs");
    EXPECT_FALSE(fs::exists(folder / "d"));
    restorer.move = [](int, const char*, int, const char*) { return EXDEV; };
    const auto far = moveToTrash({folder.writeFile("far", "1")});
    EXPECT_EQ(restore(far[0]).refusal, otherVolume);
    EXPECT_TRUE(fs::exists(far[0]));
}

TEST_F(TrashRestorerTests, AMoveCutShortIsFoundByItsIdentity) {
    const fs::path item = folder.writeFile("cut/short", "x");
    {
        (void)service.journal.plan({item});
    } // and then the process was killed
    fs::rename(item, trash / "some other name");
    const TrashListing listing = restorer.list().get();
    ASSERT_EQ(listing.items.size(), 1u);
    EXPECT_EQ(listing.items[0].original, item);
    EXPECT_EQ(restore(trash / "some other name").restoredTo, item);
    EXPECT_EQ(readFile(item), "x");
}

TEST_F(TrashRestorerTests, WhatIsCalledOffStaysAndGoesBackLater) {
    const std::vector<fs::path> items{folder.writeFile("a", "1"), folder.writeFile("b", "2")};
    const auto landed = moveToTrash(items);
    CancellationToken token;
    restorer.move = [&](int from, const char* name, int to, const char* newName) {
        token.cancel();
        return moveExclusively(from, name, to, newName);
    };
    const auto outcomes = restorer.restore(landed, token).get();
    EXPECT_EQ(outcomes[0].refusal, RestoreRefusal::cancelled);
    EXPECT_TRUE(outcomes[1].succeeded()) << "the one moved last is the first";
    EXPECT_TRUE(fs::exists(landed[0]));
    EXPECT_TRUE(restorer.list(token).get().items.empty());
    EXPECT_TRUE(restore(landed[0]).succeeded()) << "nothing was forgotten";
    const auto uncalled = service.moveToTrash(items, token).get();
    EXPECT_FALSE(uncalled[0].succeeded() || uncalled[1].succeeded());
    EXPECT_TRUE(fs::exists(items[0]));
}

TEST_F(TrashRestorerTests, LinksOfOthersLeadNowhere) {
    if (::getuid() != 0)
        GTEST_SKIP() << "needs another user's link";
    const auto landed = moveToTrash({folder.writeFile("own/a", "1"), folder.writeFile("theirs/b", "2")});
    folder.makeFolder("elsewhere");
    for (const char* name : {"own", "theirs"}) {
        fs::remove(folder / name);
        fs::create_directory_symlink("elsewhere/../elsewhere", folder / name);
    }
    ASSERT_EQ(::lchown((folder / "theirs").c_str(), 12345, 12345), 0);
    EXPECT_EQ(restore(landed[0]).restoredTo, folder / "own/a");
    EXPECT_TRUE(fs::exists(folder / "elsewhere/a"));
    EXPECT_FALSE(restore(landed[1]).succeeded());
    EXPECT_FALSE(fs::exists(folder / "elsewhere/b"));
}

} // namespace
} // namespace tarnwell
