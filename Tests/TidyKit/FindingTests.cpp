// find, frees, duplicates and changes, as a person types them.

#include "TarnwellCore/Text/HarmlessText.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/TidyKit/Scene.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::column;
using test::Scene;
using test::Words;
using testing::HasSubstr;

TEST(FindCommand, ConditionsOrdersAndForms) {
    Scene scene;
    scene.home.makeFile("a/Film.MOV", 5'000);
    scene.home.makeFile("a/film notes.txt", 300);
    scene.home.makeFile("b/old.iso", 9'000);
    scene.setAge("b/old.iso", 100);
    scene.home.makeFile("b/line\nfeed", 50);
    scene.home.makeFile(".hidden", 7'000);
    scene.home.makeFolder("films");
    const auto found = [&](Words words) {
        words.insert(words.begin(), {"find", scene.home.path().string()});
        const auto document = scene.json(words);
        Words names;
        for (const std::string& path : column(document["matches"], "path"))
            names.push_back(fs::path(path).filename());
        EXPECT_EQ(document["count"].GetInt64() >= static_cast<std::int64_t>(names.size()), true);
        return names;
    };
    const struct {
        Words words;
        Words names;
    } cases[] = {
        {{"--name", "FILM", "--sort", "name"}, {"Film.MOV", "film notes.txt", "films"}},
        {{"--glob", "*.[mM][oO][vV]"}, {"Film.MOV"}},
        {{"--glob", "b/*", "--sort", "size"}, {"old.iso", "line\nfeed"}},
        {{"--regex", "^film( |$)"}, {"film notes.txt"}},
        {{"--larger", "5kB", "--smaller", "7000", "--kind", "file", "--sort", "size"},
         {".hidden", "Film.MOV"}},
        {{"--older", "6w", "--kind", "file"}, {"old.iso"}},
        {{"--newer", "6w", "--name", "old"}, {}},
        {{"--category", "video"}, {"Film.MOV"}},
        {{"--kind", "folder", "--sort", "path"}, {"a", "b", "films"}},
        {{"--flag", "hidden"}, {".hidden"}},
        {{"--kind", "file", "--top", "2"}, {"old.iso", ".hidden"}},
        {{"--kind", "file", "--sort", "modified", "--top", "9", "--name", "o"},
         {"Film.MOV", "film notes.txt", "old.iso"}},
    };
    for (const auto& [words, names] : cases) {
        Words result = found(words);
        if (std::ranges::find(words, "modified") != words.end())
            std::ranges::sort(result.begin(), result.end() - 1); // two of the same moment
        EXPECT_EQ(result, names) << testing::PrintToString(words);
    }
    const auto totals = scene.json({"find", scene.home.path().string(), "--name", "b"});
    EXPECT_EQ(totals["totals"]["size"].GetInt64(), 9'050) << "a folder stands for what it holds, once";

    const std::string line = scene.path("b/line\nfeed");
    EXPECT_EQ(scene.text({"find", scene.home.path().string(), "--name", "feed", "--print0"}), line + '\0');
    EXPECT_EQ(scene.text({"find", scene.home.path().string(), "--name", "feed"}),
              "  50 bytes  " + harmless(line) + "\n");
    scene.surroundings.isTerminal = true;
    scene.surroundings.columns = 40;
    const std::string shown = scene.text({"find", scene.home.path().string(), "--name", "feed"});
    EXPECT_THAT(shown, testing::AllOf(HasSubstr("b/line\\nfeed\n1 match, 50 bytes\n"),
                                      testing::StartsWith("  50 bytes  …")));
    std::string pieces;
    scene.surroundings.output = [&](std::string_view piece) { pieces += piece; };
    EXPECT_EQ(scene.text({"find", scene.home.path().string(), "--top", "1", "--print0"}), "");
    EXPECT_EQ(pieces, scene.path("b") + '\0');
}

TEST(FindCommand, WhatCannotBeAskedIsSaidBeforeAnythingIsRead) {
    Scene scene;
    scene.services.scan = nullptr; // would throw
    for (const Words& words :
         {Words{"--regex", "("}, Words{"--older", "soon"}, Words{"--kind", "file", "--larger", "x"},
          Words{"--print0", "--json"}, Words{"--category", "vidio"}}) {
        Words line = {"find", "/"};
        line.insert(line.end(), words.begin(), words.end());
        EXPECT_EQ(scene.run(line).exitCode, 2) << testing::PrintToString(words);
    }
}

TEST(FreesCommand, LinksElsewhereKeepTheirBytes) {
    const Scene scene;
    scene.home.makeFile("a/one", 8'192);
    scene.home.makeFile("a/two", 4'096);
    scene.home.makeFolder("b");
    fs::create_hard_link(scene.home / "a/one", scene.home / "b/link");
    const auto alone = scene.json({"frees", scene.path("a"), "--within", scene.home.path().string()});
    EXPECT_EQ(alone["atLeast"].GetInt64(), 4'096);
    EXPECT_STREQ(alone["reasons"][0]["kind"].GetString(), "linksElsewhere");
    EXPECT_STREQ(alone["reasons"][0]["elsewhere"][0].GetString(), scene.path("b/link").c_str());
    const auto together = scene.json({"frees", scene.path("a/"), scene.path("b/../b/link")});
    EXPECT_EQ(together["atLeast"].GetInt64(), 12'288);
    EXPECT_EQ(together["reasons"].Size(), 0u);
    EXPECT_THAT(scene.text({"frees", scene.path("b")}), HasSubstr("At least  0 bytes"));
    EXPECT_EQ(scene.run({"frees", scene.path("missing")}).exitCode, 1);
}

TEST(DuplicatesCommand, GroupsAndExtras) {
    Scene scene;
    for (const char* name : {"first/copy", "second/a", "second/deeper/original"})
        scene.home.writeFile(name, std::string(20'000, 'x'));
    scene.home.writeFile("second/other", std::string(20'000, 'y'));
    scene.setAge("second/deeper/original", 10);
    fs::create_hard_link(scene.home / "second/deeper/original", scene.home / "second/link");
    const Words words = {"duplicates", scene.path("second"), scene.path("first"), "--min", "10kB"};
    const auto with = [&](Words more) {
        more.insert(more.begin(), words.begin(), words.end());
        return more;
    };
    const auto listed = scene.json(words);
    ASSERT_EQ(listed["groups"].Size(), 1u);
    EXPECT_EQ(column(listed["groups"][0]["members"], "path"),
              (Words{scene.path("first/copy"), scene.path("second/a"), scene.path("second/deeper/original"),
                     scene.path("second/link")}));
    EXPECT_EQ(listed["waste"].GetInt64(), 2 * 20'480);
    EXPECT_THAT(scene.text(words),
                testing::AllOf(HasSubstr("41 KB wasted, 3 files of 20 KB"), HasSubstr("link")));
    EXPECT_EQ(scene.run(with({"--share", "--trash-extras", "oldest"})).exitCode, 2);

    const struct {
        const char* keep;
        const char* stays;
    } keepers[] = {{"oldest", "second/deeper/original"}, {"shortest", "second/a"}, {"first", "second/a"}};
    for (const auto& [keep, stays] : keepers) {
        const auto planned = scene.json(with({"--trash-extras", keep, "--dry-run"}));
        const Words going = column(planned["planned"], "source");
        EXPECT_EQ(std::ranges::count(going, scene.path(stays)), 0) << keep;
        EXPECT_GE(going.size(), 2u) << keep;
    }
    EXPECT_EQ(scene.run(with({"--trash-extras", "oldest"})).exitCode, 2) << "nobody to ask";
    for (const Words& act : {Words{"--trash-extras", "oldest"}, Words{"--share"}}) {
        Words few = with({"--top", "0", "--dry-run"});
        few.insert(few.end(), act.begin(), act.end());
        EXPECT_EQ(scene.json(few)["planned"].Size(), 0u) << "no more than what is listed";
    }

    // A copy that changes under way stays, and so does every copy of one that is gone.
    const auto move = scene.moveToTrash;
    scene.moveToTrash = [&](const fs::path& item) {
        if (item.filename() == "copy")
            scene.home.writeFile("second/a", "changed");
        return move(item);
    };
    const auto outcomes = scene.json(with({"--trash-extras", "oldest", "--yes"}), 1);
    EXPECT_EQ(outcomes["outcomes"].Size(), 2u);
    EXPECT_TRUE(outcomes["outcomes"][0]["failure"].IsNull());
    EXPECT_THAT(outcomes["outcomes"][1]["failure"].GetString(), HasSubstr("changed"));
    EXPECT_EQ(test::readFile(scene.home / "second/a"), "changed");
    EXPECT_TRUE(fs::exists(scene.home / "second/link"));
    EXPECT_FALSE(fs::exists(scene.home / "first/copy"));
}

// Whoever gives a file its name could make a terminal do things by it.
TEST(Listings, HoldNothingThatATerminalObeys) {
    Scene scene;
    const std::string name = "\033]0;title\a\xC2\x9B\xE2\x80\xAE\xFF";
    scene.home.writeFile(name + "/one" + name, std::string(20'000, 'x'));
    scene.home.writeFile(name + "/other" + name, std::string(20'000, 'x'));
    scene.home.makeFile(".trash/" + name, 10);
    const std::string folder = scene.path(name);
    (void)scene.run({"rules", "add", "all" + name, "--larger", "1", "--yes"});
    const std::vector<Words> commands = {
        {"report", folder},
        {"find", folder},
        {"find", folder, "--print0"},
        {"frees", folder},
        {"duplicates", folder, "--min", "1"},
        {"duplicates", folder, "--trash-extras", "first", "--dry-run", "--min", "1"},
        {"rules"},
        {"rules", "test", folder},
        {"findings"},
        {"trash", "list"},
        {"trash", folder, "--dry-run"},
        {"trash", folder + "/missing"}};
    for (const bool isTerminal : {false, true})
        for (const bool isDocument : {false, true})
            for (Words words : commands) {
                const bool isRaw = words.back() == "--print0";
                if (isRaw && (isDocument || !isTerminal))
                    continue;
                if (isDocument)
                    words.emplace_back("--json");
                for (const bool isInPieces : {false, true}) {
                    std::string text;
                    scene.surroundings.isTerminal = isTerminal;
                    scene.surroundings.output = {};
                    if (isInPieces)
                        scene.surroundings.output = [&](std::string_view piece) { text += piece; };
                    const TidyResult result = scene.run(words);
                    text += result.standardOutput + result.standardError;
                    EXPECT_FALSE(text.empty());
                    for (char& byte : text)
                        byte = byte == '\n' || (isRaw && byte == '\0') ? ' ' : byte;
                    EXPECT_TRUE(isHarmless(text)) << words.front() << isDocument << "\n" << harmless(text);
                }
            }
}

// A stranger makes such a chain in a second; its paths are as long, together, as the square of its depth.
TEST(Listings, OfADeepChainAreNeverHeldWhole) {
    Scene scene;
    constexpr int depth = 530; // 36 MB of paths
    int folder = ::open(scene.home.makeFolder("chain").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string name(255, 'x');
    for (int level = 0; level < depth; ++level) {
        const int file = ::openat(folder, "a.iso", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_EQ(::write(file, "same", 4), 4);
        ::close(file);
        EXPECT_EQ(::mkdirat(folder, name.c_str(), 0755), 0);
        const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(folder);
        folder = next;
    }
    ::close(folder);
    (void)scene.text({"rules", "add", "Images", "--extension", "iso", "--yes"});
    const std::string chain = scene.path("chain");
    for (const Words& words : {Words{"duplicates", chain, "--min", "1"},
                               {"rules", "test", chain, "Images", "--json"},
                               {"find", chain, "--name", ".iso", "--sort", "path"}}) {
        std::size_t total = 0;
        std::size_t longest = 0;
        scene.surroundings.output = [&](std::string_view piece) {
            total += piece.size();
            longest = std::max(longest, piece.size());
        };
        const TidyResult result = scene.run(words);
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        EXPECT_GT(total, 35'000'000u) << words.front();
        EXPECT_LT(longest + result.standardOutput.size(), 4u << 20) << words.front();
    }
    scene.surroundings.output = {};
    // What is acted on has paths that are held; they have their bounds.
    const TidyResult planned =
        scene.run({"duplicates", chain, "--min", "1", "--trash-extras", "newest", "--dry-run"});
    EXPECT_THAT(planned.standardError, HasSubstr("further copies are left for the next time."));
    EXPECT_LT(planned.standardOutput.size(), 70'000'000u);
    EXPECT_GT(planned.standardOutput.size(), 20'000'000u);
}

TEST(DuplicatesCommand, CopiesComeToShareTheirBlocks) {
    for (const char* kind : {"btrfs", "xfs"}) {
        const auto image = test::MountedImage::make({.type = kind});
        if (!image)
            GTEST_SKIP() << image.error();
        const Scene scene;
        const test::TemporaryFolder folder((*image)->path());
        const std::string text(200'000, 's');
        for (const char* name : {"a", "b", "deeper/c"})
            folder.writeFile(name, text);
        ::sync(); // blocks are there from then on
        const Words words = {"duplicates", folder.path().string(), "--share", "--min", "1kB"};
        const auto with = [&](const char* word) {
            Words all = words;
            all.emplace_back(word);
            return all;
        };
        EXPECT_EQ(scene.run(words).exitCode, 2) << "nobody to ask";
        EXPECT_EQ(column(scene.json(with("--dry-run"))["planned"], "source"),
                  (Words{(folder / "b").string(), (folder / "deeper/c").string()}));
        const auto shared = scene.json(with("--yes"));
        ASSERT_EQ(shared["outcomes"].Size(), 2u);
        for (const auto& outcome : shared["outcomes"].GetArray())
            EXPECT_NEAR(static_cast<double>(outcome["bytesFreed"].GetInt64()), 200'000, 10'000) << kind;
        EXPECT_EQ(scene.json({"duplicates", folder.path().string(), "--min", "1kB"})["waste"].GetInt64(), 0)
            << kind;
        for (const char* name : {"a", "b", "deeper/c"})
            EXPECT_EQ(test::readFile(folder / name), text);
    }
}

TEST(ChangesCommand, FoldersStandForWhatTheyHold) {
    const Scene scene;
    scene.home.makeFile("tree/music/a.flac", 3'000'000);
    scene.home.makeFile("tree/gone/b.iso", 4'000'000);
    scene.home.makeFile("tree/deep/er/c.bin", 2'000'000);
    const std::string tree = scene.path("tree");
    EXPECT_THAT(scene.run({"changes", tree}).standardError, HasSubstr("There is no snapshot of " + tree));
    ScanSnapshot snapshot = ScanSnapshot::capture(DiskScanner().scan(tree).get(), 4, 1'000'000);
    SnapshotStore(scene.home / "snapshots").save(snapshot);
    scene.home.makeFile("tree/music/d.flac", 4'000'000);
    scene.home.makeFile("tree/music/e.flac", 5'000'000);
    scene.home.makeFile("tree/deep/er/f.bin", 8'000'000);
    fs::remove_all(scene.home / "tree/gone");
    const auto json = scene.json({"changes", tree, "--min", "1MB"});
    EXPECT_EQ(json["total"].GetInt64(), 13'000'000);
    EXPECT_EQ(column(json["causes"], "path"), (Words{"music", "deep/er/f.bin", "gone/b.iso"}));
    EXPECT_EQ(column(json["causes"], "kind"), (Words{"grew", "added", "removed"}));
    EXPECT_EQ(json["since"]["id"].GetString(), snapshot.id.text());
    EXPECT_THAT(scene.text({"changes", tree, "--min", "1MB", "--top", "1"}),
                HasSubstr("+9 MB  grew  music\n"));
    const std::string id = snapshot.id.text().substr(0, 9);
    EXPECT_EQ(scene.run({"changes", tree, "--since", id}).exitCode, 0);
    for (const char* since : {"previous", "1y", "nothing"})
        EXPECT_EQ(scene.run({"changes", tree, "--since", since}).exitCode, 1) << since;
}

} // namespace
} // namespace tarnwell
