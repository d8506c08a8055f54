// report, findings, volumes and settings, as a person types them in a made home.

#include "TarnwellTidyKit/Commands/FindingsCommand.hpp"

#include "Tests/TidyKit/Scene.hpp"

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
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(ReportCommand, OnePageTellsWhatIsThere) {
    Scene scene;
    scene.home.makeFile("big/inner/film.mov", 900'000);
    scene.home.makeFile("big/note.txt", 1'000);
    scene.home.makeFile("old.zip", 50'000);
    scene.setAge("old.zip", 400);
    scene.home.makeFile("weird\n\033[2J.log", 70'000);
    scene.setAge("weird\n\033[2J.log", 100);
    fs::create_hard_link(scene.home / "old.zip", scene.home / "zz link");

    const auto json = scene.json({"report", scene.home.path().string(), "--top", "2"});
    EXPECT_EQ(json["path"].GetString(), scene.home.path().string());
    EXPECT_EQ(json["fileCount"].GetInt64(), 5);
    EXPECT_EQ(json["directoryCount"].GetInt64(), 2);
    EXPECT_EQ(json["totals"]["size"].GetInt64(), 900'000 + 1'000 + 50'000 + 70'000);
    EXPECT_EQ(json["hardlinkCount"].GetInt64(), 1);
    EXPECT_EQ(json["hardlinkSavedBytes"].GetInt64(), 50'000);
    const auto& ledger = json["ledger"];
    std::int64_t explained = 0;
    for (const auto& line : ledger["lines"].GetArray())
        if (!line["bytes"].IsNull())
            explained +=
                line["isSubtracted"].GetBool() ? -line["bytes"].GetInt64() : line["bytes"].GetInt64();
    EXPECT_EQ(ledger["lines"].Size(), static_cast<std::size_t>(ledgerEntryCount));
    EXPECT_EQ(explained, ledger["used"].GetInt64());
    EXPECT_EQ(ledger["lines"][0]["bytes"].GetInt64(), json["totals"]["allocated"].GetInt64());
    EXPECT_EQ(column(json["largestFiles"], "path"),
              (Words{scene.path("big/inner/film.mov"), scene.path("weird\n\033[2J.log")}));
    EXPECT_EQ(column(json["largestFolders"], "path"), Words{scene.path("big/inner")})
        << "told by the folder inside";
    std::map<std::string, std::int64_t> ages;
    for (const auto& age : json["ages"].GetArray())
        ages[age["age"].GetString()] = age["size"].GetInt64();
    EXPECT_EQ(ages, (std::map<std::string, std::int64_t>{
                        {"underMonth", 901'000}, {"underYear", 70'000}, {"older", 50'000}, {"unknown", 0}}));
    std::int64_t categories = 0;
    for (const auto& category : json["categories"].GetArray())
        categories += category["size"].GetInt64();
    EXPECT_EQ(categories, json["totals"]["size"].GetInt64());

    const std::string text = scene.text({"report", scene.home.path().string()});
    EXPECT_THAT(text, HasSubstr("weird\\n\\x1B[2J.log"));
    EXPECT_THAT(text, Not(HasSubstr("\033")));
    for (const char* part : {"1 MB  what the files say", "5 files in 2 folders", "Largest files",
                             "Last modified", "1 further link to files already counted, 50 KB saved",
                             "big/inner/film.mov", "files that were scanned", "not explained"})
        EXPECT_THAT(text, HasSubstr(part));
}

TEST(ReportCommand, ColoursAndBarsOnlyOnATerminalAndEveryLineFits) {
    Scene scene;
    scene.home.makeFile("a folder with a rather long name/日本語の名前/" + std::string(120, 'x') + ".mov",
                        5'000);
    scene.home.makeFile("b.txt", 5'000);
    scene.surroundings.isTerminal = true;
    scene.surroundings.hasColors = true;
    scene.surroundings.columns = 60;
    const Words words = {"report", scene.home.path().string()};
    EXPECT_THAT(scene.text(words), testing::AllOf(HasSubstr("\033["), HasSubstr("█")));
    Words plain = words;
    plain.insert(plain.end(), {"--color", "never"});
    const std::string text = scene.text(plain);
    EXPECT_THAT(text, testing::AllOf(Not(HasSubstr("\033[")), HasSubstr("█"), HasSubstr("xxxx.mov")));
    // Characters, of which those of Japanese are left out of the path that is too long.
    std::size_t width = 0;
    for (const char byte : text) {
        width = byte == '\n' ? 0 : width + ((byte & 0xC0) != 0x80 ? 1 : 0);
        EXPECT_LE(width, std::max<std::size_t>(60, scene.home.path().string().size()));
    }
    scene.surroundings.isTerminal = false;
    scene.surroundings.hasColors = false;
    plain.back() = "always";
    EXPECT_THAT(scene.text(plain), HasSubstr("\033["));
}

TEST(ReportCommand, WhatIsChosenIsLeftOutAndTheSettingsHoldOtherwise) {
    const Scene scene;
    scene.home.makeFile("keep/a", 100);
    scene.home.makeFile("cache/b", 1'000);
    scene.home.makeFile("node_modules/c", 10'000);
    scene.home.makeFile(".hidden", 100'000);
    (void)scene.text({"settings", "set", "scanExclusions", scene.path("keep"), "--yes"});
    const std::string folder = scene.home.path().string();
    const auto size = [&](Words more) {
        more.insert(more.begin(), {"report", folder, "--exclude-name", ".settings.json"});
        return scene.json(more)["totals"]["size"].GetInt64();
    };
    EXPECT_EQ(size({}), 111'000);
    EXPECT_EQ(size({"--no-hidden"}), 11'000);
    EXPECT_EQ(size({"--exclude-name", "node_modules", "--exclude", scene.path("cache")}), 100'000);
    EXPECT_STREQ(scene.json({"report", folder})["sizeMode"].GetString(), "apparent");
    (void)scene.text({"settings", "set", "sizeMode", "reclaimable", "--yes"});
    EXPECT_STREQ(scene.json({"report", folder})["sizeMode"].GetString(), "reclaimable");
    EXPECT_STREQ(scene.json({"report", folder, "--size-mode", "apparent"})["sizeMode"].GetString(),
                 "apparent");
}

TEST(ReportCommand, WhatCouldNotBeReadIsSaid) {
    Scene scene;
    scene.services.scan = [](const fs::path& folder, ScanOptions options, auto progress, auto token) {
        ScanResult result = DiskScanner().scan(folder, std::move(options), progress, token).get();
        result.stats.inaccessibleCount = 7;
        for (int number = 1; number <= 7; ++number)
            result.inaccessiblePaths.push_back("/secret/" + std::to_string(number));
        std::promise<ScanResult> promise;
        promise.set_value(std::move(result));
        return promise.get_future();
    };
    const Words words = {"report", scene.home.path().string()};
    EXPECT_THAT(scene.text(words),
                HasSubstr("Could not be read: 7 folders.\n  /secret/1\n  /secret/2\n  /secret/3\n  "
                          "/secret/4\n  /secret/5\n  and 2 more\n"));
    EXPECT_THAT(scene.text(words), HasSubstr("sudo"));
    EXPECT_EQ(scene.json(words)["inaccessible"].Size(), 7u);
    const std::string folder = scene.home.makeFolder("inner").string();
    for (const Words& each : {words, Words{"find", folder}, Words{"frees", folder},
                              Words{"rules", "test", folder}, Words{"duplicates", folder}, Words{"findings"}})
        EXPECT_EQ(scene.json(each)["inaccessibleCount"].GetInt64(), 7) << each.front();
    scene.services.diskAccess = [] { return FullDiskAccessStatus::denied; };
    EXPECT_THAT(scene.text(words), HasSubstr("Full Disk Access"));

    const TidyResult missing = scene.run({"report", scene.path("missing\033")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.standardError, "tarnwell-tidy: " + scene.path("missing\\x1B") + " does not exist.\n");
}

TEST(FindingsCommand, PlacesAndRulesOfAHome) {
    const Scene scene;
    scene.home.makeFile(".npm/_cacache/a", 3'000'000);
    scene.home.makeFile("Library/Caches/pip/b", 2'000'000);
    scene.home.makeFile("project/node_modules/c", 4'000'000);
    scene.home.makeFile("project/package.json", 2);
    scene.home.makeFile("Old.dmg", 5'000'000);
    scene.setAge("Old.dmg", 200);
    const auto json = scene.json({"findings"});
    const Words ids = column(json["findings"], "id");
    EXPECT_THAT(ids, testing::UnorderedElementsAre("npmCache", "pipCache", "userCaches", "nodeModules",
                                                   "cleanupRule:autopilot.preset.dmg-pkg-180d"));
    for (const auto& finding : json["findings"].GetArray())
        if (finding["id"] == "npmCache") {
            EXPECT_STREQ(finding["safety"].GetString(), "safe");
            EXPECT_STREQ(finding["action"]["name"].GetString(), "trash");
            EXPECT_EQ(finding["size"].GetInt64(), 3'000'000);
            EXPECT_STREQ(finding["paths"][0].GetString(), scene.path(".npm/_cacache").c_str());
        }
    // pip's cache lies in the caches, and counts once.
    EXPECT_NEAR(static_cast<double>(json["total"].GetInt64()), 14e6, 50'000);
    EXPECT_THAT(column(scene.json({"findings", "--quick"})["findings"], "id"),
                testing::UnorderedElementsAre("npmCache", "pipCache", "userCaches"));
    const std::string text = scene.text({"findings"});
    for (const char* part :
         {"Developer\n", "Safe to remove", "npm Cache", "moves it to the Trash", "npmCache"})
        EXPECT_THAT(text, HasSubstr(part));
    EXPECT_THAT(scene.text({"findings", "--home", scene.home.makeFolder("empty").string()}),
                HasSubstr("Nothing worth clearing"));
    (void)scene.text({"settings", "set", "largeFileThresholdBytes", "4500000", "--yes"});
    EXPECT_THAT(column(scene.json({"findings"})["findings"], "id"), testing::Contains("largeFiles"));
}

TEST(ReportCommand, CalledOffBeforeTheScanIsKeptItSaysSo) {
    Scene scene;
    scene.services.ledger = [&](const ScanResult&, const CancellationToken&) {
        scene.surroundings.interruption->interrupt();
        return VolumeLedger();
    };
    EXPECT_EQ(scene.run({"report", scene.home.path().string()}).exitCode, 130);
}

TEST(VolumesCommand, ListsAndWatches) {
    Scene scene;
    VolumeInfo volume{.url = "/data/",
                      .path = "/data",
                      .name = "Data\033",
                      .totalCapacity = 100'000'000'000,
                      .availableCapacity = 5'000'000'000,
                      .fileSystemType = "ext4",
                      .uuid = {}};
    scene.services.volumes = [&] { return std::vector{volume}; };
    const auto json = scene.json({"volumes"});
    EXPECT_EQ(json["volumes"][0]["used"].GetInt64(), 95'000'000'000);
    EXPECT_STREQ(json["volumes"][0]["path"].GetString(), "/data");
    EXPECT_THAT(scene.text({"volumes"}), HasSubstr("Data\\x1B   95%  5 GB    100 GB  /data  ext4"));

    scene.services.watchVolumes = [&](double interval) {
        EXPECT_EQ(interval, 0.1);
        return std::make_unique<SpaceMonitor>(interval, SpaceMonitor::AllVolumes{}, true, [&](const auto&) {
            std::vector before{volume};
            if (volume.availableCapacity % 2'000'000'000 != 0) { // a stick that is there every other time
                before.push_back(volume);
                before.back().path = "/stick";
            }
            volume.availableCapacity -= 1'000'000'000;
            return before;
        });
    };
    const Words words = {"volumes", "--watch", "--interval", "0.1", "--updates", "2"};
    const std::string text = scene.text(words);
    EXPECT_THAT(text, HasSubstr("/data  low on space: 5 GB free"));
    EXPECT_THAT(text, HasSubstr("/data  -1 GB  4 GB free"));
    EXPECT_THAT(text, HasSubstr("/stick  gone"));
    EXPECT_EQ(text.find("/data  low on space"), text.rfind("/data  low on space")) << "once for each dip";
    Words document = words;
    document.emplace_back("--json");
    volume.availableCapacity = 5'000'000'000;
    const std::string lines = scene.text(document);
    EXPECT_EQ(std::ranges::count(lines, '\n'), 2);
    const auto second = test::readDocument(lines.substr(lines.find('\n')));
    EXPECT_EQ(second["changes"][0]["delta"].GetInt64(), -1'000'000'000);
    EXPECT_STREQ(second["gone"][0].GetString(), "/stick");
    scene.surroundings.interruption->interrupt();
    EXPECT_EQ(scene.run({"volumes", "--watch", "--interval", "0.1"}).exitCode, 130);
}

TEST(SettingsCommand, ReadsSetsAndResets) {
    Scene scene;
    EXPECT_STREQ(scene.json({"settings"})["settings"]["theme"].GetString(), "system");
    EXPECT_EQ(scene.json({"settings", "list"})["settings"].MemberCount(), 25u);
    const struct {
        Words words;
        std::string shown;
    } good[] = {
        {{"theme", "dark"}, "dark"},
        {{"com.tarnwell.sizeMode", "allocated"}, "allocated"},
        {{"scanExclusions", "/a", "/b c"}, "/a, /b c"},
        {{"scanExclusions"}, "–"},
        {{"treemapDepth", "0"}, "0"},
        {{"treemapPadding", "2.5"}, "2.5"},
        {{"showLabels", "no"}, "no"},
        {{"spaceMonitorInterval", "0.5"}, "0.5"},
        {{"largeFileThresholdBytes", "1.5 GiB"}, "1.6 GB"},
        {{"lowDiskAlertThresholdBytes", "500GB"}, "500 GB"},
        {{"snapshotCadence", "weekly"}, "weekly"},
        {{"snapshotScheduleRoot", "/usr"}, "/usr"},
    };
    for (const auto& [words, shown] : good) {
        Words set = {"settings", "set", "--yes"};
        set.insert(set.end(), words.begin(), words.end());
        EXPECT_EQ(scene.text(set), shown + "\n");
        EXPECT_EQ(scene.text({"settings", "get", words.front()}), shown + "\n");
    }
    const Words bad[] = {{"theme", "blue"},
                         {"theme"},
                         {"treemapDepth", "-1"},
                         {"treemapDepth", "1x"},
                         {"treemapPadding", "inf"},
                         {"showLabels", "1"},
                         {"spaceMonitorInterval", "0.4"},
                         {"lowDiskAlertThresholdBytes", "999MB"},
                         {"lowDiskAlertThresholdBytes", "501GB"},
                         {"largeFileThresholdBytes", "-5"},
                         {"snapshotCadence", "hourly"},
                         {"theme", "dark", "light"}};
    const std::string before = scene.text({"settings", "--json"});
    for (const Words& words : bad) {
        Words set = {"settings", "set"};
        set.insert(set.end(), words.begin(), words.end());
        EXPECT_EQ(scene.run(set).exitCode, 2) << testing::PrintToString(words);
    }
    EXPECT_THAT(scene.text({"settings", "set", "theme", "light", "--dry-run"}),
                HasSubstr("theme would be light."));
    (void)scene.text({"rules", "add", "Mine", "--larger", "1GB", "--yes"});
    const Words unasked[] = {{"settings", "reset"},
                             {"settings", "reset", "theme"},
                             {"settings", "reset", "cleanupRules"},
                             {"settings", "reset", "lastScheduledSnapshotAt", "--yes"},
                             {"settings", "set", "theme", "light"},
                             {"rules", "add", "Other", "--larger", "1GB"},
                             {"rules", "disable", "Mine"},
                             {"rules", "remove", "Mine"}};
    for (const Words& words : unasked)
        EXPECT_EQ(scene.run(words).exitCode, 2) << testing::PrintToString(words);
    EXPECT_EQ(scene.json({"rules"})["rules"].Size(), 4u);
    (void)scene.text({"settings", "reset", "cleanupRules", "--yes"});
    EXPECT_EQ(scene.text({"settings", "--json"}), before);

    EXPECT_EQ(scene.text({"settings", "reset", "theme", "--yes"}), "system\n");
    scene.surroundings.ask = [](const std::string&) { return false; };
    EXPECT_EQ(scene.run({"settings", "reset"}).exitCode, 1);
    EXPECT_EQ(scene.text({"settings", "get", "snapshotCadence"}), "weekly\n");
    (void)scene.text({"settings", "reset", "--yes"});
    EXPECT_EQ(scene.text({"settings", "get", "snapshotCadence"}), "off\n");
    EXPECT_EQ(scene.text({"settings", "get", "snapshotScheduleRoot"}), "/usr\n") << "no preference";

    // A store that cannot be written is said.
    fs::remove(scene.home / ".settings.json");
    fs::create_directory(scene.home / ".settings.json");
    const TidyResult unstored = scene.run({"settings", "set", "theme", "dark", "--yes"});
    EXPECT_EQ(unstored.exitCode, 1);
    EXPECT_THAT(unstored.standardError, HasSubstr("could not be stored"));
}

} // namespace
} // namespace tarnwell
