#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellCore/Snapshots/ScanRecord.hpp"
#include "TarnwellTidyKit/Browser/UserShell.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/TidyKit/BrowserScene.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <future>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell::test {

using testing::HasSubstr;
using testing::Not;

namespace {

/// A folder as people have them, with a home of its own around it.
struct PaperScene : BrowserScene {
    PaperScene() {
        for (const auto& [file, bytes] : {std::pair{"Films/holiday.mp4", 4'200'000},
                                          {"Films/wedding.mov", 1'300'000},
                                          {"Papers/report.pdf", 640'000},
                                          {"Papers/old/draft.pdf", 620'000},
                                          {"Papers/old/draft copy.pdf", 620'000},
                                          {"archive.zip", 2'500'000},
                                          {".hidden", 10'000},
                                          {"notes.txt", 1200}})
            home.makeFile(std::string("files/") + file, static_cast<std::uint64_t>(bytes));
        const timespec day[2] = {{.tv_sec = 1'714'550'000, .tv_nsec = 0},
                                 {.tv_sec = 1'714'550'000, .tv_nsec = 0}};
        for (const char* item : {"Films/holiday.mp4", "Films/wedding.mov", "Papers/report.pdf",
                                 "Papers/old/draft.pdf", "Papers/old/draft copy.pdf", "archive.zip",
                                 ".hidden", "notes.txt", "Films", "Papers/old", "Papers", ""})
            EXPECT_EQ(::utimensat(AT_FDCWD, path(std::string("files/") + item).c_str(), day, 0), 0);
    }
    bool has(std::string_view file) const { return fs::exists(home / "files" / file); }
};

} // namespace

// What each view looks like. To renew: TARNWELL_RENEW_SCREENS=1, then look at the differences.
TEST(BrowserTests, screens) {
    PaperScene scene;
    const struct {
        const char* name;
        const char* keys;
        GridSize size = {80, 24};
    } scenes[] = {
        {"list", ""},
        {"list-columns", "cmzt"},
        {"list-small", "j", {40, 10}},
        {"list-wide", "j", {140, 24}},
        {"list-by-name", "n"},
        {"details", "ji"},
        {"filter", "/PA"},
        {"filtered", "/pa<Enter>"},
        {"find", "fdraft<Enter>"},
        {"find-error", "f--older soon<Enter>"},
        {"jump", "fcopy<Enter><Enter>"},
        {"map", "<Tab>"},
        {"map-small", "<Tab>l", {40, 10}},
        {"largest", "<Tab><Tab>"},
        {"categories", "<Tab><Tab><Tab>"},
        {"ages", "<Tab><Tab><Tab><Tab>"},
        {"marked", "A"},
        {"marked-details", " i "},
        {"question", " d"},
        {"word", "D"},
        {"changes", "w<Tab><Tab><Tab><Tab><Tab>"},
        {"rules", "<Tab><Tab><Tab><Tab><Tab><Tab><Tab>"},
        {"rule", "<Tab><Tab><Tab><Tab><Tab><Tab><Tab>nBig --larger 1MB"},
        {"duplicates", "<Tab><Tab><Tab><Tab><Tab><Tab><Tab><Tab><Enter>"},
        {"volumes", "V"},
        {"huge", "jj", {200, 30}},
        {"findings", "<Tab><Tab><Tab><Tab><Tab><Tab>"},
        {"outcomes", " dyu<S-Tab>"},
        {"help", "?"},
        {"help-small", "?jj", {40, 10}},
        {"trash", "dy<S-Tab><S-Tab>"}, // and so the last
    };
    CleanupRule rule;
    rule.id = "one";
    rule.name = "Old papers";
    rule.extensions = {"pdf"};
    rule.olderThanDays = 90;
    SpaceSaverFinding finding;
    finding.title = "Thumbnails";
    finding.subtitle = "Small pictures of larger ones";
    finding.paths = {scene.path("files/notes.txt")};
    finding.size = finding.allocatedSize = finding.reclaimableSize = 1'234'000;
    finding.itemCount = 1;
    finding.safety = CleanupSafety::safe;
    finding.action = SpaceSaverActions::Trash{};
    scene.services.findings = [&](const fs::path&, SpaceSaverProbe::Request, CancellationToken) {
        std::promise<std::vector<SpaceSaverFinding>> found;
        found.set_value({finding});
        return found.get_future();
    };
    for (const auto& each : scenes) {
        scene.size = each.size;
        AppSettings settings(scene.services.settings());
        settings.setCleanupRules(std::vector{rule});
        settings.setDuplicateMinimumSizeBytes(1000);
        scene.expectScreen(each.name, each.keys);
        fs::remove(scene.home / ".settings.json");
    }
}

TEST(BrowserTests, movesToTheTrashAndBack) {
    PaperScene scene;
    // The first two rows by size: the films and the archive.
    EXPECT_THAT(scene.screenAfter("  d"), HasSubstr("Move 2 items to the Trash?"));
    EXPECT_THAT(scene.screenAfter("  dn"), HasSubstr("Nothing was done."));
    EXPECT_TRUE(scene.has("archive.zip"));
    const std::string after = scene.screenAfter("  dy");
    EXPECT_FALSE(scene.has("archive.zip"));
    EXPECT_FALSE(scene.has("Films"));
    EXPECT_THAT(after, Not(HasSubstr("archive.zip")));
    EXPECT_THAT(after, HasSubstr("2 items done"));
    EXPECT_THAT(after, HasSubstr("Size 2 MB")) << "the sums above are less by what went";
    // Another browser: the journal knows.
    EXPECT_THAT(scene.screenAfter("u"), HasSubstr("archive.zip"));
    EXPECT_TRUE(scene.has("archive.zip"));
    EXPECT_TRUE(scene.has("Films/wedding.mov"));
    // At once, when the settings say so, and back within the same tree.
    AppSettings(scene.services.settings()).setConfirmBeforeTrash(false);
    EXPECT_THAT(scene.screenAfter("jdu"), HasSubstr("archive.zip"));
    EXPECT_TRUE(scene.has("archive.zip"));
    // From the Trash's own view.
    scene.screenAfter("jd");
    EXPECT_FALSE(scene.has("archive.zip"));
    EXPECT_THAT(scene.screenAfter("<S-Tab><Enter>"), HasSubstr("put back"));
    EXPECT_TRUE(scene.has("archive.zip"));
}

TEST(BrowserTests, deletesForGoodOnlyAfterTheWord) {
    PaperScene scene;
    scene.screenAfter("jDdel<Enter>");
    EXPECT_TRUE(scene.has("archive.zip"));
    scene.screenAfter("jDdelete<Esc>");
    EXPECT_TRUE(scene.has("archive.zip"));
    scene.wayOut = WayOut::trash;
    EXPECT_THAT(scene.screenAfter("jD"), HasSubstr("there is a Trash here. d moves it"));
    EXPECT_THAT(scene.screenAfter("AD"), HasSubstr("d moves them there"));
    scene.wayOut = WayOut::none;
    EXPECT_THAT(scene.screenAfter("jD"), HasSubstr("cannot be taken out of its folder"));
    EXPECT_TRUE(scene.has("archive.zip"));
    scene.wayOut = WayOut::deletion;
    scene.screenAfter("jDdelete<Enter>");
    EXPECT_FALSE(scene.has("archive.zip"));
    // Of what is marked only what has no Trash, also when one has come since that was asked.
    scene.services.wayOutOf = [&](const fs::path& item) {
        return item.parent_path().filename() == "old" ? WayOut::deletion : WayOut::trash;
    };
    EXPECT_THAT(scene.screenAfter("fpdf<Enter>AD"), HasSubstr("Delete 2 of 3 items for good"));
    int asked = 0;
    const auto before = std::exchange(scene.services.wayOutOf, [&](const fs::path&) {
        return ++asked == 1 ? WayOut::deletion : WayOut::trash;
    });
    EXPECT_THAT(scene.screenAfter("fdraft<Enter>Ddelete<Enter>"), HasSubstr("was not deleted"));
    scene.services.wayOutOf = before;
    EXPECT_THAT(scene.screenAfter("fpdf<Enter>ADdelete<Enter>"), HasSubstr("● "));
    EXPECT_FALSE(scene.has("Papers/old/draft.pdf"));
    EXPECT_TRUE(scene.has("Papers/report.pdf"));
    fs::remove(scene.home / ".settings.json");
    scene.isReadOnly = true;
    EXPECT_THAT(scene.screenAfter("d"), HasSubstr("only looks"));
    EXPECT_FALSE(fs::exists(scene.home / ".settings.json"));
    scene.screenAfter("Ddelete<Enter>u E  dy");
    EXPECT_TRUE(scene.has("Films/wedding.mov"));
    EXPECT_THAT(scene.screenAfter("?"), Not(HasSubstr("Acting")));
}

TEST(BrowserTests, deletesWhereThereReallyIsNoTrash) {
    const auto memory = MountedImage::make({.type = "tmpfs", .size = 1'000'000});
    if (!memory)
        GTEST_SKIP() << memory.error();
    BrowserScene scene;
    scene.services.wayOutOf = wayOutOf;
    scene.folder = (*memory)->path();
    std::ofstream((*memory)->path() / "passing") << "text";
    EXPECT_THAT(scene.screenAfter("d"), HasSubstr("to the Trash?"));
    scene.screenAfter("Ddelete<Enter>");
    EXPECT_TRUE(fs::is_empty((*memory)->path()));
}

TEST(BrowserTests, protectedPlacesAndAncestors) {
    PaperScene scene;
    const fs::path home = scene.home / "files/Films";
    scene.services.home = [home] { return home; };
    EXPECT_THAT(scene.screenAfter(" "), HasSubstr("cannot be marked: It is the home folder."));
    EXPECT_THAT(scene.screenAfter("d"), HasSubstr("stays"));
    EXPECT_THAT(scene.screenAfter("AGk"), HasSubstr("4 marked"))
        << "all but the home, and without what is hidden or not";
    // Marked below, then the folder: one item.
    EXPECT_THAT(scene.screenAfter("jjl h "), HasSubstr("1 marked"));
    EXPECT_THAT(scene.screenAfter("jj kl "), HasSubstr("A folder above it is marked."));
    EXPECT_THAT(scene.screenAfter("fdraft<Enter>A"), HasSubstr("2 marked"));
    EXPECT_THAT(scene.screenAfter("jvjj U"), Not(HasSubstr("marked")));
    // Gone into one of the hits, the others lie elsewhere.
    EXPECT_THAT(scene.screenAfter("fpdf<Enter>j<Enter><Tab><Tab><Tab>"),
                testing::AllOf(HasSubstr("/files/Papers/report.pdf"), HasSubstr("  draft.pdf")));
}

TEST(BrowserTests, goesOnWhenThingsFail) {
    PaperScene scene;
    scene.moveToTrash = [](const fs::path& item) {
        return TrashOutcome{item, std::nullopt, "There is no room left in the Trash."};
    };
    EXPECT_THAT(scene.screenAfter("  dy"), HasSubstr("2 not: see Outcomes"));
    EXPECT_THAT(scene.screenAfter("  dy<S-Tab>"), HasSubstr("There is no room left in the Trash."));
    EXPECT_THAT(scene.screenAfter("R"), HasSubstr("no desktop"));
    const std::string folder = std::exchange(scene.folder, scene.path("nowhere"));
    EXPECT_THAT(scene.screenAfter(""), testing::AllOf(HasSubstr("nowhere"), HasSubstr("Photos")));
    scene.folder = folder;
    scene.services.listTrash = []() -> TrashListing { throw std::runtime_error("The Trash is gone."); };
    EXPECT_THAT(scene.screenAfter("u"), HasSubstr("The Trash is gone."));
    scene.services.volumes = []() -> std::vector<VolumeInfo> { throw std::runtime_error("No volumes."); };
    EXPECT_THAT(scene.screenAfter("V"), HasSubstr("No volumes."));
}

TEST(BrowserTests, startsShellsAsUsual) {
    PaperScene scene;
    const char* before = std::getenv("SHELL");
    const std::string shell = before == nullptr ? "" : before;
    const std::string script = scene.path("shell");
    scene.home.makeFile("shell", 0);
    std::ofstream(script) << "#!/bin/sh\n(kill -PIPE $(sh -c 'echo $PPID'); echo survived) > out\n";
    fs::permissions(script, fs::perms::owner_all);
    ::setenv("SHELL", script.c_str(), 1);
    const auto pipes = std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(runUserShell(scene.folder), "");
    EXPECT_EQ(readFile(fs::path(scene.folder) / "out"), "") << "a reader that has gone ends programs";
    EXPECT_THAT(runUserShell(scene.path("nowhere")), HasSubstr("There is no way into"));
    ::setenv("SHELL", scene.path("nothing").c_str(), 1);
    EXPECT_THAT(scene.screenAfter("b"), HasSubstr("be started: No such file"));
    (void)std::signal(SIGPIPE, pipes);
    shell.empty() ? ::unsetenv("SHELL") : ::setenv("SHELL", shell.c_str(), 1);
}

// Ctrl-C leaves what is open first.
TEST(BrowserTests, interruptsWhatIsOpen) {
    PaperScene scene;
    for (const auto& [keys, isOpen] : {std::pair{"jDdel", true}, {"jd", true}, {"j", false}}) {
        MemoryScreen screen({80, 24});
        screen.type(keys);
        screen.give(QuitRequest{SIGINT});
        screen.type("q");
        BrowserSetup setup{
            .folder = scene.folder, .services = &scene.services, .surroundings = &scene.surroundings};
        setup.isPatient = true;
        EXPECT_EQ(runBrowser(screen, setup), isOpen ? 0 : 128 + SIGINT) << keys;
    }
    EXPECT_TRUE(scene.has("archive.zip"));
}

TEST(BrowserTests, remembersAndTells) {
    PaperScene scene;
    scene.screenAfter("nca<Tab><Tab>q");
    EXPECT_THAT(scene.screenAfter("<S-Tab><S-Tab>"), HasSubstr("Items"));
    scene.folder.clear();
    EXPECT_THAT(scene.screenAfter(""), HasSubstr("Last folder"));
    EXPECT_THAT(scene.screenAfter("<Enter>"), HasSubstr("/files"));
    scene.folder = scene.path("files");
    fs::remove(scene.home / ".settings.json");
    scene.screenAfter("jp");
    EXPECT_EQ(scene.clipboard, scene.path("files/archive.zip"));
    EXPECT_THAT(scene.screenAfter("g" + scene.path("files/Papers") + "<Enter>"), HasSubstr("report.pdf"));
    EXPECT_THAT(scene.screenAfter("g/nowhere<Enter>"),
                testing::AllOf(HasSubstr("nowhere"), HasSubstr("archive.zip")))
        << "what was shown stays";
    scene.screenAfter("w<Tab><Tab><Tab><Tab><Tab>");
    EXPECT_EQ(scene.services.snapshotStore()->list().size(), 1);
    EXPECT_GE(scene.services.history().list().size(), 4);
}

// The past as a chart; what was asked for at the start holds this once.
TEST(BrowserTests, historyAndChoices) {
    PaperScene scene;
    scene.isReadOnly = true; // and so no scan of these is noted
    for (const auto& [day, size] :
         {std::pair{0, 4'000'000}, {10, 6'000'000}, {30, 5'000'000}, {40, 9'000'000}}) {
        ScanRecord record{.rootPath = DiskScanner::normalize(scene.path("files")),
                          .finishedAt = Date(Date::duration(day * 86'400.0)),
                          .totalSize = size,
                          .totalAllocatedSize = size,
                          .fileCount = 8,
                          .volume = {},
                          .categories = {}};
        scene.services.history().note(record);
    }
    scene.expectScreen("history", "<S-Tab><S-Tab>");
    scene.choices = {
        .sizeMode = SizeMode::allocated, .excludedNames = {"archive.zip"}, .leaveOutHidden = true};
    scene.isReadOnly = false;
    fs::remove(scene.home / ".settings.json"); // with the view
    const std::string shown = scene.screenAfter("");
    EXPECT_THAT(shown,
                testing::AllOf(HasSubstr("On disk"), HasSubstr(".archive.zip"), Not(HasSubstr(".hidden"))));
    EXPECT_EQ(AppSettings(scene.services.settings()).sizeMode(), SizeMode::apparent) << "for this time only";
}

// What happens elsewhere while somebody looks: a shell here, files that come, a volume that goes.
TEST(BrowserTests, readsAgainWhatOthersChange) {
    PaperScene scene;
    std::string folder;
    scene.shell = [&](const std::string& place) {
        folder = place;
        scene.home.makeFile("files/Papers/new.pdf", 3'000'000);
        scene.home.makeFile("files/elsewhere", 9'000'000);
        fs::remove(scene.path("files/Papers/report.pdf"));
        return std::string();
    };
    // The archive goes to the Trash first: it stays gone, though only one folder is read again.
    const std::string after = scene.screenAfter("jdylbr<BS>");
    EXPECT_EQ(folder, scene.path("files/Papers"));
    EXPECT_THAT(after, testing::AllOf(HasSubstr("Papers"), HasSubstr("4.2 MB"), Not(HasSubstr("archive.zip")),
                                      Not(HasSubstr("elsewhere"))))
        << "other folders are as they were";
    scene.shell = [&](const std::string&) {
        fs::rename(scene.path("files"), scene.path("gone"));
        scene.services.volumes = [] { return std::vector<VolumeInfo>(); };
        return std::string();
    };
    EXPECT_THAT(scene.screenAfter("br"), testing::AllOf(HasSubstr("elsewhere"), HasSubstr("files")))
        << "the last that was seen, and why there is nothing newer";
    EXPECT_EQ(scene.status, 0);
}

} // namespace tarnwell::test
