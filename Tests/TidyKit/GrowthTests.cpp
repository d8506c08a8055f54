// history, schedule and the digest of changes: what is kept of scans, and what is told from it.

#include "TarnwellTidyKit/Commands/HistoryChart.hpp"

#include "Tests/TidyKit/Scene.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::column;
using test::Scene;
using test::Words;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const Date now(std::chrono::duration<double>(1'700'000'000)); // 2023-11-14T22:13:20Z
constexpr double day = 86'400;

Date daysAgo(double days) {
    return now - std::chrono::duration<double>(days * day);
}

ScanRecord scanOf(const std::string& path, Date date, std::int64_t size) {
    ScanRecord record;
    record.rootPath = path;
    record.finishedAt = date;
    record.totalSize = size;
    record.totalAllocatedSize = 2 * size;
    record.fileCount = 10;
    record.volume = VolumeSpace{.capacity = 10'000'000'000, .free = 400'000'000};
    return record;
}

TEST(HistoryCommand, GrowthAndTheDayWhenTheVolumeIsFull) {
    Scene scene;
    scene.services.now = [] { return now; };
    const ScanHistory history = scene.services.history();
    for (int week = 4; week >= 0; --week)
        history.note(scanOf("/data", daysAgo(week * 7), 1'000'000'000 - week * 70'000'000));
    const auto json = scene.json({"history", "/data"});
    EXPECT_EQ(json["perDay"].GetInt64(), 10'000'000);
    EXPECT_STREQ(json["fullOn"].GetString(), "2023-12-04T22:13:20Z"); // in 20 days, by allocated bytes
    ASSERT_EQ(json["scans"].Size(), 5u);
    EXPECT_EQ(json["scans"][0]["size"].GetInt64(), 720'000'000);
    EXPECT_STREQ(json["scans"][4]["finishedAt"].GetString(), "2023-11-14T22:13:20Z");
    EXPECT_EQ(json["scans"][4]["volume"]["available"].GetInt64(), 400'000'000);
    EXPECT_EQ(scene.json({"history", "/data", "--top", "2"})["scans"][0]["size"].GetInt64(), 930'000'000);

    const std::string text = scene.text({"history", "/data", "--top", "2"});
    EXPECT_THAT(text, testing::AllOf(HasSubstr("1 GB  +70 MB  10 files  400 MB free\n"),
                                     HasSubstr("and 3 older\n"), HasSubstr("It grows by 10 MB a day, by 5"),
                                     HasSubstr("full on 2023-12-0"), Not(HasSubstr("█"))));
    scene.surroundings.isTerminal = true;
    scene.surroundings.columns = 40;
    EXPECT_THAT(scene.text({"history", "/data"}), testing::AllOf(HasSubstr("720 MB ▁"), HasSubstr("█\n")));

    EXPECT_TRUE(scene.json({"history", "/other"})["perDay"].IsNull());
    EXPECT_THAT(scene.text({"history", "/other"}), HasSubstr("No scan of /other is kept yet"));
    history.note(scanOf("/other", now, 5));
    const auto all = scene.json({"history"});
    EXPECT_EQ(column(all["folders"], "path"), (Words{"/data", "/other"}));
    EXPECT_EQ(all["scans"].Size(), 6u);
    EXPECT_THAT(scene.text({"history"}), HasSubstr("/data       5  2023-11-1"));
}

TEST(HistoryCommand, WhatReportsKeepOfScans) {
    Scene scene;
    scene.home.makeFile("tree/a.mov", 5'000);
    const std::string tree = scene.path("tree");
    const auto kept = [&] { return scene.services.history().series(tree); };
    for (const Words& leftOut : {Words{"--exclude-name", "x"}, Words{"--cross"}, Words{"--forget"}}) {
        Words words{"report", tree};
        words.insert(words.end(), leftOut.begin(), leftOut.end());
        (void)scene.text(words);
    }
    EXPECT_TRUE(kept().empty());
    (void)scene.text({"report", tree, "--size-mode", "allocated"});
    ASSERT_EQ(kept().size(), 1u);
    EXPECT_EQ(kept().front().totalSize, 5'000);
    EXPECT_TRUE(kept().front().volume.has_value());
    // Where it cannot be kept, the page is there all the same.
    scene.services.history = [] { return ScanHistory("/dev/null/history.json"); };
    const TidyResult result = scene.run({"report", tree, "--json"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.standardError, HasSubstr("The scan is not in the history: "));
    EXPECT_EQ(test::readDocument(result.standardOutput)["fileCount"].GetInt64(), 1);
}

TEST(HistoryChart, EachColumnShowsWhatWasKnownLast) {
    const TidyStyle style{.hasBars = true, .columns = 40};
    const std::vector<ChartPoint> points = {{daysAgo(10), 0}, {daysAgo(1), 40'000}, {now, 20'000}};
    const std::string chart = historyChart(points, style);
    const std::string top = chart.substr(0, chart.find('\n'));
    EXPECT_THAT(top, testing::StartsWith("    40 KB "));
    // Of thirty columns those of the last day but the very last reach the first row.
    EXPECT_EQ(std::ranges::count(top, '\xE2'), 2);
    EXPECT_EQ(std::ranges::count(chart, '\n'), 6);
    EXPECT_EQ(historyChart(points, {.hasBars = true, .columns = 20}), "");
    EXPECT_EQ(historyChart(std::span(points).first(1), style), "");
    EXPECT_EQ(historyChart(points, {}), "");
}

/// A schedule whose timer goes nowhere, and a clock.
struct ScheduleScene : Scene {
    std::vector<ScheduledJobPlan::Command> ran;
    Date time = now;
    std::optional<std::string> refusal = {};

    ScheduleScene() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        services.now = [this] { return time; };
        services.scheduleInstaller.run = [this](const ScheduledJobPlan::Command& command) {
            ran.push_back(command);
            return refusal;
        };
        home.makeFile("tree/a", 2'000'000);
        tree = path("tree");
    }
    ~ScheduleScene() {
        ::unsetenv("TZ");
        ::tzset();
    }
    std::string tree;
    bool hasTimer() const {
        return fs::exists(home / ".config/systemd/user/com.tarnwell.snapshot-schedule.timer");
    }
    std::size_t snapshots() const { return SnapshotStore(home / "snapshots").list().size(); }
};

TEST(ScheduleCommand, SnapshotsAreTakenWhenTheyAreDue) {
    ScheduleScene scene;
    EXPECT_EQ(scene.text({"schedule"}), "No snapshots are scheduled.\n");
    EXPECT_STREQ(scene.json({"schedule", "run"})["outcome"].GetString(), "off");
    // Without consent, and by trial, nothing happens.
    EXPECT_EQ(scene.run({"schedule", "daily", scene.tree}).exitCode, 2);
    EXPECT_EQ(scene.json({"schedule", "daily", scene.tree, "--dry-run"})["planned"].Size(), 2u);
    EXPECT_FALSE(scene.hasTimer());
    EXPECT_STREQ(scene.json({"schedule"})["cadence"].GetString(), "off");

    const auto json = scene.json({"schedule", "daily", scene.tree, "--yes"});
    EXPECT_STREQ(json["cadence"].GetString(), "daily");
    EXPECT_EQ(json["root"].GetString(), scene.tree);
    EXPECT_STREQ(json["next"].GetString(), "2023-11-14T22:13:20Z"); // at once
    EXPECT_STREQ(json["timer"].GetString(), "installed");
    EXPECT_TRUE(json["failure"].IsNull());
    EXPECT_TRUE(scene.hasTimer());
    EXPECT_THAT(scene.ran.back(), testing::Contains("com.tarnwell.snapshot-schedule.timer"));
    EXPECT_THAT(test::readFile(scene.home / ".config/systemd/user/com.tarnwell.snapshot-schedule.service"),
                HasSubstr("/opt/tarnwell-tidy"));

    EXPECT_TRUE(scene.json({"schedule", "run", "--dry-run"})["planned"].GetBool());
    EXPECT_EQ(scene.snapshots(), 0u);
    const auto taken = scene.json({"schedule", "run"});
    EXPECT_STREQ(taken["outcome"].GetString(), "taken");
    EXPECT_STREQ(taken["next"].GetString(), "2023-11-15T00:00:00Z");
    EXPECT_EQ(scene.snapshots(), 1u);
    EXPECT_EQ(scene.services.history().series(scene.tree).size(), 1u);
    EXPECT_EQ(scene.text({"schedule", "run"}), "None is due before 2023-11-15.\n");
    EXPECT_THAT(scene.text({"schedule", "run", "--force"}), HasSubstr("was taken: "));
    EXPECT_THAT(scene.text({"schedule"}), HasSubstr("are taken every day.\nThe last one is of 2023-11-14."));
    EXPECT_EQ(scene.run({"changes", scene.tree}).exitCode, 0);

    // Another folder begins anew; weekly ones are seven days apart.
    EXPECT_EQ(scene.run({"schedule", "weekly", scene.path("missing"), "--yes"}).exitCode, 1);
    EXPECT_STREQ(scene.json({"schedule", "weekly", scene.home.path().string(), "--yes"})["next"].GetString(),
                 "2023-11-14T22:13:20Z");
    EXPECT_STREQ(scene.json({"schedule", "run"})["next"].GetString(), "2023-11-21T00:00:00Z");
    (void)scene.text({"schedule", "off", "--yes"});
    EXPECT_FALSE(scene.hasTimer());
    EXPECT_STREQ(scene.json({"schedule", "run"})["outcome"].GetString(), "off");
    EXPECT_EQ(scene.snapshots(), 2u) << "of a folder and a day the newest stays";
}

TEST(ScheduleCommand, WhatCannotBeArrangedIsSaid) {
    ScheduleScene scene;
    scene.refusal = "no session";
    const TidyResult refused = scene.run({"schedule", "daily", scene.tree, "--yes"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.standardError, HasSubstr("does not run yet: no session"));
    EXPECT_EQ(scene.run({"schedule", "off", "--yes"}).exitCode, 0);
    scene.services.scheduleInstaller.write = [](const ScheduledJobPlan::File&) {
        throw std::system_error(std::make_error_code(std::errc::no_space_on_device));
    };
    EXPECT_EQ(scene.run({"schedule", "daily", scene.tree, "--yes"}).exitCode, 1);
    EXPECT_STREQ(scene.json({"schedule"})["cadence"].GetString(), "off");
}

TEST(ChangesCommand, ADigestTellsWhatMatters) {
    ScheduleScene scene;
    scene.time = currentDate(); // the record of a snapshot's scan is of the same hour
    (void)scene.text({"schedule", "daily", scene.tree, "--yes"});
    scene.home.makeFile("tree/gone/old.zip", 30'000'000);
    (void)scene.text({"schedule", "run"});
    fs::remove_all(scene.home / "tree/gone");
    scene.home.makeFile("tree/films/new.mov", 25'000'000);
    scene.home.makeFile("tree/films/newer.mov", 25'000'000);
    const auto json = scene.json({"changes", scene.tree, "--digest"});
    EXPECT_NEAR(static_cast<double>(json["total"].GetInt64()), 20e6, 1e6);
    EXPECT_THAT(column(json["causes"], "path"), ElementsAre("films", "gone"));
    EXPECT_THAT(column(json["newFolders"], "path"), ElementsAre("films"));
    EXPECT_THAT(column(json["goneFolders"], "path"), ElementsAre("gone"));
    EXPECT_THAT(column(json["categories"], "category"), ElementsAre("Video", "Archives"));
    EXPECT_GT(json["spaceBefore"]["capacity"].GetInt64(), 0);
    const std::string text = scene.text({"changes", scene.tree, "--digest"});
    for (const char* part : {"New folders\n  50 MB  films", "Folders that are gone\n  30 MB  gone",
                             "-30 MB  Archives", "free of"})
        EXPECT_THAT(text, HasSubstr(part));
}

} // namespace
} // namespace tarnwell
