// Back from the freedesktop.org Trash, by the notes beside the items.

#include "TarnwellCore/Actions/TrashRestorer.hpp"
#include "TarnwellCore/Actions/TrashService.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::readFile;
using test::TemporaryFolder;

struct Place {
    TemporaryFolder folder;
    TrashRestorer restorer{folder.path(), TrashJournal(folder / "journal.txt")};

    Place() {
        restorer.trashFolders = [this](const fs::path&) {
            return std::vector<fs::path>{folder / "home/Trash/files", volumeTrash() / "files" / ""};
        };
        folder.makeFolder("home/Trash/info");
        folder.makeFolder("home/Trash/files");
        fs::create_directories(volumeTrash() / "files");
        fs::create_directories(volumeTrash() / "info");
    }
    fs::path volumeTrash() const { return folder / ("volume/.Trash-" + std::to_string(::getuid())); }

    /// Puts an item with its note into a Trash.
    fs::path put(const fs::path& trash, const std::string& name, const std::string& path,
                 const std::string& date = "2024-01-02T03:04:05") const {
        const fs::path inside = trash.lexically_relative(folder.path());
        folder.writeFile((inside / "info" / (name + ".trashinfo")).native(),
                         "[Trash Info]\nPath=" + path + "\nDeletionDate=" + date + "\n");
        return folder.writeFile((inside / "files" / name).native(), name);
    }
};

TEST(RestoredTrash, WhatTheDesktopNotedGoesBack) {
    const Place place;
    const fs::path home = place.folder / "home/Trash";
    const fs::path a = place.put(home, "a", (place.folder / "was").native() + "/here/a%20%FF");
    const fs::path b = place.put(place.volumeTrash(), "b.2", "dir/./b/");
    ASSERT_EQ(place.restorer.list().get().items.size(), 2u);
    const auto outcomes = place.restorer.restore({a, b}).get();
    EXPECT_EQ(outcomes[0].restoredTo, place.folder / "was/here/a \xFF");
    EXPECT_EQ(outcomes[1].restoredTo, place.folder / "volume/dir/b");
    EXPECT_EQ(readFile(place.folder / "volume/dir/b"), "b.2");
    EXPECT_TRUE(fs::is_empty(home / "info"));
    EXPECT_TRUE(fs::is_empty(place.volumeTrash() / "info"));
    EXPECT_TRUE(place.restorer.list().get().items.empty());
}

/// Whether the journal or the note tells of what lies there: sets take long, notes have no time zone.
TEST(RestoredTrash, AnItemStaysWithItsSetUnlessItWasMovedAgain) {
    const Place place;
    fs::create_directory_symlink(".", place.folder / "link");
    const std::string root = place.folder.path().native();
    const struct {
        const char* name;
        std::string notedPath; // the journal has "<root>/<name>"
        std::string notedDate; // the journal has 60 s for the plan, 120 s for the move, in 2024
        bool isSame;
        bool hasSet;
        std::string original = {};
    } rows[] = {
        {"slow", root + "/slow", "2024-01-01T00:02:00", true, true, root + "/slow"},
        {"zone", root + "/zone", "2024-01-01T05:02:00", true, true, root + "/zone"},
        {"linked", root + "/link/linked", "2024-01-01T05:02:00", true, true, root + "/linked"},
        {"again", root + "/elsewhere", "2024-01-01T05:02:00", true, false, root + "/elsewhere"},
        {"other", root + "/other", "2024-01-01T05:02:00", false, false, root + "/other"},
        {"changed", root + "/changed", "2024-01-01T00:02:00", false, false},
    };
    std::string journal;
    std::tm first = {};
    first.tm_mday = 1;
    first.tm_year = 124;
    first.tm_isdst = -1;
    const auto milliseconds = [start = std::mktime(&first)](int seconds) {
        return std::to_string((start - 978'307'200 + seconds) * 1000);
    };
    for (const auto& row : rows) {
        const fs::path item = place.put(place.folder / "home/Trash", row.name, row.notedPath, row.notedDate);
        const auto identity = itemIdentity(AT_FDCWD, item.c_str());
        const std::string middle =
            ":" + std::to_string(identity->inode + (row.isSame ? 0 : 1)) + ":" +
            std::to_string(static_cast<std::uint32_t>(identity->type)) + ":-\t" + root + "/";
        const std::string set = "\t" + UUID::random().text() + "\t0\t";
        const std::string device = "\t" + std::to_string(identity->device);
        journal.append("plan" + set + milliseconds(60) + device + middle + row.name + "\n");
        journal.append("moved" + set + milliseconds(120) + device + middle + "home/Trash/files/" + row.name +
                       "\n");
    }
    place.folder.writeFile("journal.txt", journal);
    const auto items = place.restorer.list().get().items;
    ASSERT_EQ(items.size(), std::size(rows));
    for (const auto& row : rows) {
        const auto item = std::ranges::find(items, place.folder / "home/Trash/files" / row.name,
                                            &TrashedItem::location);
        ASSERT_NE(item, items.end());
        EXPECT_EQ(item->set.has_value(), row.hasSet) << row.name;
        EXPECT_EQ(item->original.value_or("").native(), row.original) << row.name;
    }
}

/// A disk that a stranger has prepared.
TEST(RestoredTrash, NotesLeadNowhereElse) {
    const Place place;
    const fs::path trash = place.volumeTrash();
    place.folder.makeFolder("target");
    fs::create_directory_symlink(place.folder / "target", place.folder / "volume/link");
    fs::create_directory_symlink("../target", place.folder / "volume/up");
    std::vector<fs::path> items{
        place.put(trash, "1", "../target/x"),
        place.put(trash, "2", (place.folder / "target/x").native()),
        place.put(trash, "3", "link/x"),
        place.put(trash, "4", "up/x"),
        place.put(trash, "5", "a/%2E%2E/%2e%2e/target/x"),
        place.put(trash, "6", "x%00y"),
        place.put(trash, "7", "."),
        place.put(trash, "8", ""),
        place.put(trash, "9", "link"),
    };
    for (const char* kind : {"pipe", "note link", "folder"}) {
        items.push_back(place.put(trash, kind, "x"));
        const fs::path note = trash / "info" / (kind + std::string(".trashinfo"));
        fs::remove(note);
        if (std::string(kind) == "pipe") {
            ASSERT_EQ(::mkfifo(note.c_str(), 0666), 0);
        } else if (std::string(kind) == "folder") {
            fs::create_directory(note);
        } else {
            place.folder.writeFile("theirs", "[Trash Info]\nPath=x\n");
            fs::create_symlink(place.folder / "theirs", note);
        }
    }
    // What is beside no Trash folder is no note, whatever it looks like.
    items.push_back(place.put(place.folder.makeFolder("fake"), "z", (place.folder / "target/x").native()));
    const auto outcomes = place.restorer.restore(items).get();
    for (const RestoreOutcome& outcome : outcomes) {
        if (outcome.source.filename() == "9") // beside the link of that name
            EXPECT_EQ(outcome.restoredTo, place.folder / "volume/link (restored)");
        else
            EXPECT_FALSE(outcome.succeeded()) << outcome.source;
    }
    EXPECT_TRUE(fs::is_empty(place.folder / "target"));
    EXPECT_EQ(place.restorer.list().get().items.size(), items.size() - 2);
}

/// By the library of the desktop, without a journal: as if the process had been killed right after the move.
TEST(RestoredTrash, AMoveThatNobodyNotedGoesBack) {
    const TemporaryFolder folder(std::getenv("HOME"));
    TrashService service(std::getenv("HOME"));
    service.journal = TrashJournal("/dev/null/none");
    const fs::path item = folder.writeFile("q u i t e % odd\n", "x");
    const auto landed = service.moveToTrash(item).get().trashedTo;
    ASSERT_TRUE(landed);
    TrashRestorer restorer(std::getenv("HOME"), TrashJournal(folder / "journal.txt"));
    EXPECT_THAT(restorer.list().get().items,
                testing::Contains(testing::Field(&TrashedItem::original, std::optional(item))));
    EXPECT_EQ(restorer.restore({*landed}).get()[0].restoredTo, item);
    EXPECT_EQ(readFile(item), "x");

    // Another item has come to its name since: the later note counts, not the journal.
    service.journal = TrashJournal(folder / "journal.txt");
    const auto noted = service.moveToTrash(item).get().trashedTo;
    ASSERT_TRUE(noted);
    fs::remove(*noted);
    EXPECT_EQ(restorer.restore({*noted}).get()[0].refusal, RestoreRefusal::notThere);
    folder.writeFile("q u i t e % odd\n", "replaced");
    fs::rename(item, *noted);
    EXPECT_EQ(restorer.restore({*noted}).get()[0].refusal, RestoreRefusal::changed);
}

} // namespace
} // namespace tarnwell
