// What changes something: trash, uninstall, clean, evict and rules, with consent, dry runs, refusals and
// interruptions.

#include "TarnwellCore/Actions/TrashEmptying.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include "Tests/Support/SilentShare.hpp"
#include "Tests/TidyKit/Scene.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::column;
using test::Scene;
using test::Words;
using testing::HasSubstr;

/// By source; an empty text for what went well.
std::map<std::string, std::string> failures(const test::JSONValue& document) {
    std::map<std::string, std::string> all;
    for (const auto& outcome : document["outcomes"].GetArray())
        all[outcome["source"].GetString()] =
            outcome["failure"].IsNull() ? "" : outcome["failure"].GetString();
    return all;
}

TEST(TrashCommand, AShareThatDoesNotAnswerHoldsNobodyUp) {
    const auto share = test::SilentShare::make();
    if (!share)
        GTEST_SKIP() << share.error();
    Scene scene;
    scene.home.makeFile(".trash/old", 10);
    const fs::path silent = (*share)->path() / "Trash/files";
    const auto folders = [&](const fs::path&) { return std::vector<fs::path>{silent, scene.path(".trash")}; };
    scene.services.listTrash = [&] {
        TrashRestorer restorer(scene.home.path(), TrashJournal(scene.home / ".journal"));
        restorer.trashFolders = folders;
        return restorer.list().get();
    };
    scene.services.trashSummary = [&](const fs::path&) {
        return TrashSummary{.locations = {}, .unanswered = {silent}};
    };
    scene.services.emptyTrash = [&](const fs::path& home, const CancellationToken& token) {
        return emptyTrashFolders(folders(home), token);
    };
    const std::string line = silent.native() + ": Its volume does not answer.";
    const TidyResult listed = scene.run({"trash", "list"});
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_THAT(listed.standardOutput, HasSubstr(".trash/old"));
    EXPECT_EQ(listed.standardError, line + "\n");
    EXPECT_EQ(scene.run({"trash", "empty"}).exitCode, 2) << "it may hold something, and nobody can be asked";
    const TidyResult emptied = scene.run({"trash", "empty", "--yes"});
    EXPECT_EQ(emptied.exitCode, 1);
    EXPECT_THAT(emptied.standardError, HasSubstr(line));
    EXPECT_FALSE(fs::exists(scene.home / ".trash/old")) << "what can be emptied is";
}

TEST(TrashCommand, EachItemHasAnOutcomeAndWhatMustStayStays) {
    const Scene scene;
    scene.home.makeFile("a b.txt", 10);
    scene.home.makeFile("folder/inner", 10);
    scene.home.makeFile("notes.db", 10);
    scene.home.makeFile("notes.db-wal", 10);
    fs::create_symlink(scene.home.path(), scene.home / "link");
    const auto outcomes =
        failures(scene.json({"trash", scene.path("a b.txt"), scene.path("folder/"),
                             scene.path("folder/inner"), scene.path("link"), scene.path("missing"),
                             scene.path("notes.db"), "/usr", scene.path("a b.txt"), "--yes"},
                            1));
    EXPECT_EQ(outcomes.size(), 6u) << "what lies in another item goes along, and each item once";
    for (const char* name : {"a b.txt", "folder", "link"}) {
        EXPECT_EQ(outcomes.at(scene.path(name)), "") << name;
        EXPECT_TRUE(fs::exists(fs::symlink_status(scene.home / ".trash" / name))) << name;
    }
    EXPECT_TRUE(fs::is_symlink(scene.home / ".trash/link"));
    EXPECT_NE(outcomes.at(scene.path("missing")), "");
    EXPECT_THAT(outcomes.at(scene.path("notes.db")), HasSubstr("together"));
    EXPECT_EQ(outcomes.at("/usr"), "It belongs to the system.");
    // Through a link, ".." is where the kernel says it is, not the text.
    scene.home.makeFile("deep/target/inner", 10);
    scene.home.makeFile("deep/mine", 10);
    scene.home.makeFile("mine", 10);
    fs::create_symlink(scene.home / "deep/target", scene.home / "way");
    EXPECT_EQ(scene.run({"trash", scene.path("way/../mine"), "--yes"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(scene.home / "mine"));
    EXPECT_FALSE(fs::exists(scene.home / "deep/mine"));
    for (const char* place : {".", "../"})
        EXPECT_THAT(scene.run({"trash", scene.path(place), "--yes"}).standardError, HasSubstr("home folder"));
    EXPECT_TRUE(fs::exists(scene.home / "notes.db"));

    EXPECT_EQ(column(scene.json({"trash", "list"})["items"], "path").size(), 4u);
    const TidyResult both = scene.run({"trash", scene.path("notes.db"), scene.path("notes.db-wal"), "--yes"});
    EXPECT_EQ(both.exitCode, 0) << both.standardError;
    EXPECT_THAT(both.standardOutput, HasSubstr("still occupy disk space"));
}

TEST(TrashCommand, NothingHappensWithoutConsent) {
    Scene scene;
    const fs::path file = scene.home.makeFile("file", 10);
    const Words words = {"trash", file.string()};
    EXPECT_THAT(scene.text({"trash", file.string(), "--dry-run"}), HasSubstr("to the Trash"));
    EXPECT_EQ(column(scene.json({"trash", file.string(), "--dry-run"})["planned"], "source"),
              Words{file.string()});
    const TidyResult nobody = scene.run(words);
    EXPECT_EQ(nobody.exitCode, 2);
    EXPECT_THAT(nobody.standardError, HasSubstr("--yes"));
    std::string question;
    bool answer = false;
    scene.surroundings.ask = [&](const std::string& asked) {
        question = asked;
        return answer;
    };
    EXPECT_EQ(scene.run(words).exitCode, 1);
    EXPECT_EQ(question, "  " + file.string() + "\nMove 1 item to the Trash?");
    EXPECT_TRUE(fs::exists(file));
    (void)scene.text({"settings", "set", "confirmBeforeTrash", "no", "--yes"});
    EXPECT_EQ(scene.run(words).exitCode, 0);
    EXPECT_FALSE(fs::exists(file));
    scene.surroundings.ask = {};
    EXPECT_EQ(scene.run({"trash", scene.home.makeFile("other").string()}).exitCode, 2)
        << "a script says --yes";
}

TEST(TrashCommand, AnInterruptionStopsBetweenTwoItems) {
    Scene scene;
    Words words = {"trash", "--yes"};
    for (const char* name : {"a", "b", "c"})
        words.push_back(scene.home.makeFile(name).string());
    const auto move = scene.moveToTrash;
    scene.moveToTrash = [&](const fs::path& item) {
        if (item.filename() == "b")
            scene.surroundings.interruption->interrupt();
        return move(item);
    };
    const auto outcomes = failures(scene.json(words, 130));
    EXPECT_EQ(outcomes.at(words[2]), "");
    EXPECT_EQ(outcomes.at(words[3]), "") << "what has begun ends whole";
    EXPECT_EQ(outcomes.at(words[4]), "It was not touched: interrupted.");
    EXPECT_TRUE(fs::exists(words[4]));
}

TEST(TrashCommand, EmptyingAsksEvenWhenMovingNeedNot) {
    Scene scene;
    scene.home.makeFile(".trash/old", 5'000);
    int emptied = 0;
    EmptyTrashOutcome outcome = EmptyTrashFailed{"The Finder is busy."};
    scene.services.trashSummary = [](const fs::path&) {
        return TrashSummary{
            .locations = {}, .itemCount = 1, .reclaimableSize = 8192, .unanswered = {"/mnt/far\n"}};
    };
    scene.services.emptyTrash = [&](const fs::path&, const CancellationToken&) {
        ++emptied;
        return outcome;
    };
    EXPECT_EQ(scene.run({"trash", "empty"}).exitCode, 2);
    (void)scene.text({"trash", "empty", "--dry-run"});
    EXPECT_EQ(emptied, 0);
    const TidyResult failed = scene.run({"trash", "empty", "--yes"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.standardError, "Trash: The Finder is busy.\n");
    outcome = EmptyTrashEmptied{};
    EXPECT_EQ(scene.json({"trash", "empty", "--yes"})["outcomes"][0]["bytesFreed"].GetInt64(), 8192);
    const TidyResult size = scene.run({"trash", "size", "--json"});
    EXPECT_THAT(size.standardOutput, HasSubstr("\"itemCount\": 1"));
    EXPECT_EQ(size.standardError, "/mnt/far\\n: Its volume does not answer.\n");
    EXPECT_EQ(scene.run({"trash", "list", "x"}).exitCode, 2);
}

TEST(TrashCommand, TheLastSetGoesBackWhereItWas) {
    Scene scene;
    const std::string inner = scene.home.writeFile("folder/inner", "inner").string();
    const std::string file = scene.home.writeFile("file", "file").string();
    EXPECT_THAT(scene.text({"trash", "restore", "--yes"}), HasSubstr("nothing to do"));
    (void)scene.text({"trash", inner, scene.path("folder"), "--yes"});
    (void)scene.text({"trash", file, "--yes"});
    const auto listed = scene.json({"trash", "list"});
    ASSERT_EQ(listed["items"].Size(), 2u) << "what lies in another goes along";
    EXPECT_EQ(column(listed["items"], "original"), (Words{file, scene.path("folder")}));
    EXPECT_EQ(listed["items"][0]["size"].GetInt64(), 4);
    EXPECT_EQ(scene.run({"trash", "restore"}).exitCode, 2) << "nobody to ask";
    EXPECT_THAT(scene.text({"trash", "restore", "--dry-run"}), HasSubstr("back to " + file));
    EXPECT_FALSE(fs::exists(file));
    const auto back = scene.json({"trash", "restore", "--yes"});
    ASSERT_EQ(back["outcomes"].Size(), 1u);
    EXPECT_EQ(back["outcomes"][0]["source"].GetString(), scene.path(".trash/file"));
    EXPECT_EQ(back["outcomes"][0]["restoredTo"].GetString(), file);
    EXPECT_THAT(scene.text({"trash", "restore", "--yes"}), HasSubstr("back at " + scene.path("folder")));
    EXPECT_EQ(test::readFile(inner), "inner");

    // By where it was and by where it lies; beside what is there now; what is not there fails.
    (void)scene.text({"trash", file, inner, "--yes"});
    scene.home.writeFile("file", "newer");
    const auto named = failures(
        scene.json({"trash", "restore", file, scene.path(".trash/inner"), scene.path("none"), "--yes"}, 1));
    EXPECT_EQ(named.size(), 3u);
    EXPECT_NE(named.at(scene.path("none")), "");
    EXPECT_EQ(test::readFile(scene.home / "file"), "newer");
    EXPECT_EQ(test::readFile(scene.home / "file (restored)"), "file");

    // Called off before the last item of a set, that goes back the next time.
    Words many = {"trash", "--yes", file};
    for (int count = 0; count < 2; ++count)
        many.push_back(scene.home.makeFile("many/" + std::to_string(count)).string());
    (void)scene.text(many);
    const auto restore = scene.services.restore;
    scene.services.restore = [&](const std::vector<fs::path>& places, const CancellationToken& token) {
        auto outcomes = restore({places.begin(), places.end() - 1}, {});
        scene.surroundings.interruption->interrupt();
        std::ranges::move(restore({places.back()}, token), std::back_inserter(outcomes));
        return outcomes;
    };
    EXPECT_EQ(scene.run({"trash", "restore", "--yes"}).exitCode, 130);
    EXPECT_TRUE(fs::exists(many.back()) && !fs::exists(file)) << "the one moved last is the first";
    scene.services.restore = restore;
    scene.surroundings.interruption = std::make_shared<TidyInterruption>();
    (void)scene.text({"trash", "restore", "--yes"});
    EXPECT_TRUE(fs::exists(file));
}

TEST(UninstallCommand, ShowsWhatGoesAndMovesItAsOneSet) {
    Scene scene;
    const auto bundle = [&](const std::string& path, const std::string& identifier) {
        scene.home.writeFile(path + "/Contents/Info.plist",
                             "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" +
                                 identifier + "</string></dict></plist>");
        return scene.path(path);
    };
    const std::string editor = bundle("Applications/Editor.app", "com.example.editor");
    bundle("machine/Applications/Viewer.app", "com.example.viewer");
    const std::string cache = scene.path("Library/Caches/com.example.editor");
    const std::string group = scene.path("Library/Group Containers/group.com.example.editor");
    scene.home.makeFile("Library/Caches/com.example.editor/x", 8'192);
    scene.home.makeFile("Library/Group Containers/group.com.example.editor/x", 10);

    const auto planned = scene.json({"uninstall", "com.example.EDITOR", "--dry-run"});
    EXPECT_EQ(column(planned["items"], "path"), (Words{editor, cache, group}));
    EXPECT_EQ(column(planned["items"], "reason"), (Words{"application", "identifier", "groupContainer"}));
    EXPECT_EQ(column(planned["items"], "safety"), (Words{"reviewNeeded", "safe", "caution"}));
    EXPECT_TRUE(planned["items"][1]["goes"].GetBool() && !planned["items"][2]["goes"].GetBool());
    EXPECT_GE(planned["items"][1]["reclaimable"].GetInt64(), 8'192);
    EXPECT_EQ(planned["outcomes"].Size(), 0u);
    EXPECT_STREQ(planned["application"]["identifier"].GetString(), "com.example.editor");
    EXPECT_THAT(scene.text({"uninstall", "editor", "--dry-run"}), HasSubstr("Viewer may use it, too."));
    EXPECT_EQ(scene.run({"uninstall", editor}).exitCode, 2) << "nobody to ask";
    std::string question;
    scene.surroundings.ask = [&](const std::string& asked) {
        question = asked;
        return false;
    };
    EXPECT_EQ(scene.run({"uninstall", editor + "/"}).exitCode, 1);
    EXPECT_THAT(question, testing::AllOf(HasSubstr(cache), HasSubstr("Move 2 items to the Trash?")));
    EXPECT_TRUE(fs::exists(editor));
    EXPECT_EQ(scene.run({"uninstall", "x", "--all", "--keep-leftovers"}).exitCode, 2);
    EXPECT_THAT(scene.run({"uninstall", "nothing", "--yes"}).standardError,
                HasSubstr("no application 'nothing'"));
    bundle("machine/Applications/Editor.app", "com.example.other");
    EXPECT_THAT(scene.run({"uninstall", "Editor", "--yes"}).standardError, HasSubstr("Several are called"));
    EXPECT_EQ(scene.run({"uninstall", scene.path("Library"), "--yes"}).exitCode, 1);

    const auto uninstaller = scene.services.uninstaller;
    scene.services.uninstaller = [&](const fs::path& home) {
        Uninstaller made = uninstaller(home);
        made.programsRunningFrom = [](const fs::path& place) {
            return std::vector<RunningProgram>{{9, place / "x"}};
        };
        return made;
    };
    const auto refused = scene.json({"uninstall", editor, "--yes"}, 1);
    EXPECT_THAT(refused["refusal"].GetString(), HasSubstr("running"));
    EXPECT_FALSE(refused["items"][0]["goes"].GetBool());
    scene.services.uninstaller = uninstaller;

    const auto done = scene.json({"uninstall", editor, "--yes"});
    EXPECT_EQ(failures(done), (std::map<std::string, std::string>{{editor, ""}, {cache, ""}}));
    EXPECT_TRUE(fs::exists(group) && !fs::exists(cache) && !fs::exists(editor));
    (void)scene.text({"trash", "restore", "--yes"});
    EXPECT_TRUE(fs::exists(cache) && fs::exists(editor));
    EXPECT_THAT(scene.text({"uninstall", editor, "--yes", "--keep-leftovers"}),
                testing::AllOf(HasSubstr("These stay"), HasSubstr(cache)))
        << "shown when nobody is asked, too";
    EXPECT_TRUE(fs::exists(cache) && !fs::exists(editor));
}

TEST(CleanCommand, DoesWhatFindingsOffer) {
    Scene scene;
    scene.home.makeFile(".npm/_cacache/a", 3'000'000);
    scene.home.makeFile("go/pkg/mod/b", 2'000'000);
    scene.home.makeFile(".android/avd/c", 4'000'000);
    std::vector<Words> runs;
    std::optional<CommandResult> answer =
        CommandResult{.exitCode = 1, .standardOutput = {}, .standardError = "go: busy\n"};
    scene.services.runTool = [&](const Words& words) {
        runs.push_back(words);
        return answer;
    };
    std::vector<fs::path> shown;
    scene.services.reveal = [&](const fs::path& path) {
        shown.push_back(path);
        return true;
    };
    EXPECT_EQ(scene.run({"clean"}).exitCode, 2);
    EXPECT_EQ(scene.run({"clean", "npmCache"}).exitCode, 2) << "nobody to ask";
    const TidyResult unknown = scene.run({"clean", "npmCahe", "--yes"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_THAT(unknown.standardError, HasSubstr("Did you mean npmCache?"));
    const auto planned = scene.json({"clean", "--safe", "--dry-run"});
    EXPECT_THAT(column(planned["planned"], "finding"),
                testing::UnorderedElementsAre("npmCache", "goModuleCache"))
        << "what is to be reviewed has to be named";

    const auto done = scene.json({"clean", "--safe", "--yes"}, 1);
    EXPECT_EQ(failures(done), (std::map<std::string, std::string>{{scene.path(".npm/_cacache"), ""},
                                                                  {"go clean -modcache", "go: busy"}}));
    EXPECT_TRUE(fs::exists(scene.home / ".trash/_cacache/a"));
    EXPECT_EQ(runs, (std::vector<Words>{{"go", "clean", "-modcache"}}));
    answer.reset();
    EXPECT_THAT(scene.run({"clean", "goModuleCache", "--yes"}).standardError, HasSubstr("is it installed?"));
    EXPECT_EQ(scene.run({"clean", "androidVirtualDevices", "--yes"}).exitCode, 0);
    EXPECT_EQ(shown, std::vector{scene.home / ".android/avd"});
    scene.services.reveal = [](const fs::path&) { return false; };
    EXPECT_EQ(scene.run({"clean", "androidVirtualDevices", "--yes"}).exitCode, 1);
    EXPECT_TRUE(fs::exists(scene.home / ".android/avd/c"));
}

TEST(EvictCommand, FoldersStandForTheirFilesAndRefusalsAreFailures) {
    Scene scene;
    const std::string file = scene.home.makeFile("Library/CloudStorage/Dropbox/film", 9'000).string();
    scene.home.makeFile("Library/CloudStorage/Dropbox/empty");
    const std::string outside = scene.home.makeFile("outside", 10).string();
    scene.services.evict = [](const fs::path& path, const std::vector<SyncedRoot>& roots) -> EvictionOutcome {
        if (SyncedRoots::contains(path.native(), roots))
            return EvictionEvicted{path, 12'288};
        return EvictionRefused{path, {EvictionRefusal::Kind::outsideSyncedRoot}};
    };
    const Words words = {"evict", scene.path("Library"), outside, "--yes"};
    const auto document = scene.json(words, 1);
    EXPECT_EQ(failures(document),
              (std::map<std::string, std::string>{{file, ""}, {outside, "It is not in a synced folder."}}));
    EXPECT_EQ(document["outcomes"][0]["bytesFreed"].GetInt64(), 12'288);
    const auto planned =
        scene.json({"evict", scene.path("Library"), scene.path("Library/CloudStorage/Dropbox"), "--dry-run"});
    EXPECT_EQ(column(planned["planned"], "source"), Words{file});
    EXPECT_EQ(planned["inaccessibleCount"].GetInt64(), 0);
}

TEST(RulesCommand, RulesAreKeptInTheSettingsAndTried) {
    Scene scene;
    scene.home.makeFile("Downloads/big.iso", 200'000);
    scene.home.makeFile("Downloads/small.iso", 200);
    scene.home.makeFile("Downloads/old.txt", 300'000);
    scene.setAge("Downloads/old.txt", 50);
    EXPECT_EQ(scene.json({"rules"})["rules"].Size(), 3u) << "those that it comes with";
    EXPECT_EQ(scene.run({"rules", "add", "All"}).exitCode, 2);
    EXPECT_EQ(scene.run({"rules", "add", "X", "--category", "vidio"}).exitCode, 2);
    EXPECT_EQ(scene.run({"rules", "add", "X", "--older", "12h"}).exitCode, 2);
    EXPECT_EQ(scene.run({"rules", "list", "--larger", "1MB"}).exitCode, 2);
    (void)scene.text({"rules", "add", "Images", "--location", "~/Downloads/", "--extension", ".ISO",
                      "--category", "ARCHIVES", "--larger", "100kB", "--yes"});
    (void)scene.text({"rules", "add", "Old", "--older", "6w", "--yes"});
    (void)scene.text({"rules", "add", "Never", "--larger", "1EB", "--dry-run"});
    const auto listed = scene.json({"rules", "list"});
    ASSERT_EQ(listed["rules"].Size(), 5u);
    const auto& images = listed["rules"][3];
    EXPECT_STREQ(images["locationPrefix"].GetString(), "~/Downloads");
    EXPECT_STREQ(images["extensions"][0].GetString(), "iso");
    EXPECT_EQ(images["minimumSize"].GetInt64(), 100'000);
    EXPECT_EQ(listed["rules"][4]["olderThanDays"].GetInt64(), 42);

    const auto paths = [&](Words words) {
        words.insert(words.begin(), {"rules", "test", scene.home.path().string()});
        Words found;
        const auto document = scene.json(words);
        for (const auto& match : document["matches"].GetArray())
            for (const auto& path : match["paths"].GetArray())
                found.emplace_back(path.GetString());
        return found;
    };
    EXPECT_EQ(paths({}), (Words{scene.path("Downloads/big.iso"), scene.path("Downloads/old.txt")}));
    (void)scene.text({"rules", "disable", "Images", listed["rules"][4]["id"].GetString(), "--yes"});
    EXPECT_EQ(paths({}), Words{});
    EXPECT_EQ(paths({"Images"}), Words{scene.path("Downloads/big.iso")}) << "named, also when it is off";
    EXPECT_EQ(scene.run({"rules", "remove", "Images"}).exitCode, 2);
    (void)scene.text({"rules", "add", "Old", "--older", "9d", "--yes"});
    EXPECT_THAT(scene.run({"rules", "remove", "Old", "--yes"}).standardError,
                HasSubstr("name one by its ID"));
    (void)scene.text({"rules", "remove", "Images", "autopilot.preset.dmg-pkg-180d", "--yes"});
    EXPECT_EQ(scene.json({"rules"})["rules"].Size(), 4u);
    EXPECT_EQ(scene.run({"rules", "enable", "Images"}).exitCode, 1);
    // While somebody is asked, another drops one and adds one.
    const std::string theirs = scene.json({"rules"})["rules"][0]["id"].GetString();
    scene.surroundings.ask = [&](const std::string&) {
        (void)scene.text({"rules", "remove", theirs, "--yes"});
        (void)scene.text({"rules", "add", "Theirs", "--larger", "1GB", "--yes"});
        return true;
    };
    EXPECT_THAT(scene.text({"rules", "add", "Mine", "--larger", "2GB"}),
                testing::AllOf(HasSubstr("Theirs"), testing::Not(HasSubstr(theirs))));
}

TEST(ProtectedPlaces, WhatEverythingElseLiesInStays) {
    ProtectedPlaces places("/home/ann"); // one for all: what it knows of a folder must not disturb the next
    for (const char* path :
         {"/", "/home", "/home/ann", "/home/ann/", "/usr", "/System/", "/home/ann/Library"})
        EXPECT_NE(places.reasonToStay(path), "") << path;
    for (const char* path : {"/home/ann/Library/Caches", "/home/anna", "/usr/x", "/home/ann/x", "/usrs"})
        EXPECT_EQ(places.reasonToStay(path), "") << path;
}

TEST(ProtectedPlaces, AHomeReachedThroughALinkStaysUnderBothItsNames) {
    Scene scene;
    const fs::path real = scene.home.makeFolder("disk/people/ann").parent_path();
    fs::create_directory_symlink(real, scene.home / "people");
    for (const fs::path& home : {real / "ann", scene.home / "people/ann", scene.home / "people/ann/"})
        for (const fs::path& people : {real, scene.home / "people"}) {
            EXPECT_NE(ProtectedPlaces(home).reasonToStay(people / "ann"), "") << home << people;
            EXPECT_NE(ProtectedPlaces(home).reasonToStay(people / "ann/Documents"), "") << home << people;
            EXPECT_EQ(ProtectedPlaces(home).reasonToStay(people / "ann/x"), "") << home << people;
        }
}

} // namespace
} // namespace tarnwell
