#include "TarnwellCore/Analysis/SpaceSaverMeasuring.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Platform/Trash.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

namespace tarnwell {
namespace {

using test::TemporaryFolder;
using testing::ElementsAre;
namespace fs = std::filesystem;

const SpaceSaverProbe::DirectoryRule& ruleOf(SpaceSaverKind kind) {
    return *std::ranges::find(SpaceSaverProbe::directoryRules(), kind, &SpaceSaverProbe::DirectoryRule::kind);
}

/// A home on the real disk, and a probe that sees nothing outside of it.
struct Home {
    TemporaryFolder folder;
    SpaceSaverProbe probe{folder.path(), 1};

    Home() {
        probe.trashFolders = [](const fs::path& home) { return std::vector<fs::path>{home / ".Trash"}; };
        probe.runTool = [](const auto&, const auto&, double) { return std::nullopt; };
    }

    std::optional<SpaceSaverFinding> measured(SpaceSaverKind kind) const {
        return probe.evaluate(ruleOf(kind), DiskScanner(), ScanOptions(), nullptr);
    }
    /// The same from a scan of the home.
    std::optional<SpaceSaverFinding> lookedUp(SpaceSaverKind kind, const ScanOptions& options = {}) const {
        const ScanResult scan = DiskScanner().scan(folder.path(), options).get();
        return probe.evaluate(ruleOf(kind), DiskScanner(), ScanOptions(), treeLookup(scan.root));
    }
    /// What both say alike.
    std::optional<SpaceSaverFinding> found(SpaceSaverKind kind) const {
        EXPECT_EQ(lookedUp(kind), measured(kind));
        return measured(kind);
    }
};

TEST(SpaceSaverProbe, SizesAgreeWithAScanOfTheSameFolders) {
    const Home home;
    home.folder.makeFile("Library/Developer/Xcode/iOS DeviceSupport/17/symbols", 70'000);
    home.folder.makeFile("Library/Developer/Xcode/tvOS DeviceSupport/file", 5);
    home.folder.makeFile("Library/Developer/Xcode/other/file", 1000);
    fs::create_hard_link(home.folder / "Library/Developer/Xcode/iOS DeviceSupport/17/symbols",
                         home.folder / "Library/Developer/Xcode/iOS DeviceSupport/link");

    const auto finding = home.found(SpaceSaverKind::xcodeDeviceSupport);
    ASSERT_TRUE(finding);
    const auto& rule = ruleOf(SpaceSaverKind::xcodeDeviceSupport);
    EXPECT_EQ(finding->id, "xcodeDeviceSupport");
    EXPECT_EQ(finding->title, rule.title);
    EXPECT_EQ(finding->explanation, rule.explanation);
    EXPECT_EQ(finding->action, rule.action);
    EXPECT_TRUE(finding->sizeIsKnown);
    EXPECT_EQ(finding->size, 70'005);
    EXPECT_EQ(finding->itemCount, 3);
    EXPECT_THAT(finding->paths, ElementsAre(home.folder / "Library/Developer/Xcode/iOS DeviceSupport",
                                            home.folder / "Library/Developer/Xcode/tvOS DeviceSupport"));
    std::int64_t allocated = 0;
    for (const fs::path& path : finding->paths)
        allocated += DiskScanner().scan(path).get().root->allocatedSize;
    EXPECT_EQ(finding->allocatedSize, allocated);
}

TEST(SpaceSaverProbe, SmallEmptyAndMissingPlacesAreLeftOut) {
    Home home;
    home.folder.makeFile(".npm/_cacache/x", 1000);
    home.folder.makeFolder(".cargo/registry");
    home.probe.minimumSize = 1000;
    EXPECT_TRUE(home.measured(SpaceSaverKind::npmCache));
    home.probe.minimumSize = 1001;
    EXPECT_FALSE(home.measured(SpaceSaverKind::npmCache));
    home.probe.minimumSize = -1;
    EXPECT_FALSE(home.measured(SpaceSaverKind::cargoRegistry));
    EXPECT_FALSE(home.found(SpaceSaverKind::gradleCache));
}

TEST(SpaceSaverProbe, PathsInsideOneAnotherCountOnce) {
    const Home home;
    home.folder.makeFile("Library/pnpm/store/v3/file", 3000);
    home.folder.makeFile("Library/pnpm/tool", 500);
    const auto store = home.found(SpaceSaverKind::pnpmStore);
    ASSERT_TRUE(store);
    EXPECT_EQ(store->size, 3500);
    EXPECT_EQ(store->itemCount, 2);
    EXPECT_THAT(store->paths, ElementsAre(home.folder / "Library/pnpm"));

    // Two spellings of one place are one place.
    home.folder.makeFile("Library/Caches/pip/wheel", 800);
    fs::create_directory_symlink("Library/Caches", home.folder / ".cache");
    for (const auto& finding :
         {home.measured(SpaceSaverKind::pipCache), home.lookedUp(SpaceSaverKind::pipCache)}) {
        ASSERT_TRUE(finding);
        EXPECT_EQ(finding->size, 800);
        EXPECT_EQ(finding->paths.size(), 1u);
    }
}

TEST(SpaceSaverProbe, LinksFilesAndFoldersTheScanPassedOver) {
    const Home home;
    home.folder.makeFile("elsewhere/file", 9000);
    home.folder.makeFolder("Library/Developer/Xcode");
    fs::create_directory_symlink(home.folder / "elsewhere",
                                 home.folder / "Library/Developer/Xcode/DerivedData");
    EXPECT_FALSE(home.found(SpaceSaverKind::xcodeDerivedData)) << "removing a link frees nothing";

    // An outer path that is a link does not hide the real folder behind it.
    fs::create_directory_symlink(home.folder / "elsewhere", home.folder / "Library/pnpm");
    home.folder.makeFile("elsewhere/store/file", 50);
    const auto store = home.measured(SpaceSaverKind::pnpmStore);
    ASSERT_TRUE(store);
    EXPECT_EQ(store->size, 50);

    home.folder.makeFile("Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw", 4000);
    EXPECT_EQ(home.found(SpaceSaverKind::dockerData)->size, 4000);

    // What the scan passed over is measured; what it only added up is taken as it is.
    home.folder.makeFile(".gradle/caches/a/b/file", 700);
    ScanOptions excluding;
    excluding.excludedNames = {"caches"};
    ScanOptions shallow;
    shallow.maximumDepth = 2;
    for (const ScanOptions& options : {excluding, shallow})
        EXPECT_EQ(home.lookedUp(SpaceSaverKind::gradleCache, options),
                  home.measured(SpaceSaverKind::gradleCache));
}

TEST(SpaceSaverProbe, WhatCannotBeReadHasNoKnownSize) {
    const Home home;
    ::chmod(home.folder.path().c_str(), 0755);
    home.folder.makeFile(".npm/_cacache/x", 1000);
    ::chmod((home.folder / ".npm/_cacache").c_str(), 0);
    EXPECT_EQ(test::runUnprivileged([&]() -> std::string {
                  for (const auto& finding :
                       {home.measured(SpaceSaverKind::npmCache), home.lookedUp(SpaceSaverKind::npmCache)}) {
                      if (!finding)
                          return "none";
                      if (finding->sizeIsKnown || finding->size != 0 || finding->paths.size() != 1)
                          return "known";
                  }
                  return "unknown";
              }),
              "unknown");
}

TEST(SpaceSaverProbe, RuleMatchesBecomeFindingsOfWhatTheTrashCanClear) {
    FileTreeBuilder builder("/");
    FileNode& user = builder.addFolder(builder.addFolder(builder.root(), "home"), "u");
    FileNode& downloads = builder.addFolder(user, "Downloads");
    builder.addFile(downloads, "large.dmg", 5000);
    builder.addFile(downloads, "small.dmg", 300);
    builder.addFile(downloads, "cloud.dmg", {.size = 7000, .flags = FileNodeFlags::dataless});
    builder.addFile(downloads, "link.dmg", {.size = 7000, .flags = FileNodeFlags::symlink});
    builder.addFile(builder.addFolder(user, ".Trash"), "thrown away.dmg", 7000);
    builder.addFile(builder.addFolder(builder.root(), "usr"), "system.dmg", 7000);
    const auto root = builder.finish();
    CleanupRule images{.id = "dmg", .name = "Images", .extensions = {"dmg"}};
    images.categories = {root->node("/home/u/Downloads/large.dmg")->category};
    const CleanupRule wide{.id = "dmg", .name = "All downloads", .locationPrefix = "~/Downloads"};
    const CleanupRule all{.id = "all", .name = "All"};
    const auto matches = RuleEvaluator::evaluate({images, wide, all}, *root, currentDate(), "/home/u");

    const auto findings = SpaceSaverProbe("/home/u", 5300).cleanupRuleFindings(matches);
    ASSERT_EQ(findings.size(), 3u);
    EXPECT_EQ(findings[0].id, "cleanupRule:dmg");
    EXPECT_EQ(findings[0].title, "Images");
    EXPECT_EQ(findings[0].size, 5300);
    EXPECT_EQ(findings[0].itemCount, 2);
    EXPECT_EQ(findings[0].category, images.categories[0]);
    EXPECT_EQ(findings[0].action, SpaceSaverAction(SpaceSaverActions::Trash{}));
    EXPECT_THAT(findings[0].paths, ElementsAre("/home/u/Downloads/large.dmg", "/home/u/Downloads/small.dmg"));
    // A home's own folders and the scanned folder itself are not offered to the Trash.
    EXPECT_EQ(findings[1].id, "cleanupRule:dmg#2");
    EXPECT_THAT(findings[1].paths, ElementsAre("/home/u/Downloads"));
    EXPECT_THAT(findings[2].paths, ElementsAre("/"));
    for (const SpaceSaverFinding& finding : {findings[1], findings[2]}) {
        EXPECT_EQ(finding.action, SpaceSaverAction(SpaceSaverActions::OpenLocation{}));
        EXPECT_EQ(finding.safety, CleanupSafety::caution);
    }
}

TEST(SpaceSaverProbe, TheHomeCountsUnderBothItsNames) {
    const TemporaryFolder world;
    const fs::path real = world / "users.above/user.home";
    world.makeFile("users.above/user.home/Downloads/file.dmg", 5000);
    fs::create_directory_symlink(world / "users.above", world / "link");
    const fs::path trash = homeTrashDirectory(real);
    fs::create_directories(trash);
    world.makeFile(trash.lexically_relative(world.path()).string() + "/old.dmg", 5000);
    const std::vector<CleanupRule> rules{
        {.id = "above", .name = "1", .extensions = {"above"}},
        {.id = "home", .name = "2", .extensions = {"home"}},
        {.id = "downloads", .name = "3", .locationPrefix = "~/Downloads"},
        {.id = "written", .name = "4", .locationPrefix = (world / "link/user.home/Downloads").native()},
        {.id = "whole", .name = "5", .locationPrefix = "~//", .extensions = {"dmg"}},
    };
    const ScanResult scan = DiskScanner().scan(world.path()).get();
    for (const fs::path& home : {real, real / "", world / "link/user.home", world / "link//user.home/"}) {
        SCOPED_TRACE(home);
        const SpaceSaverProbe probe(home, 0);
        const auto findings = probe.cleanupRuleFindings(
            RuleEvaluator::evaluate(rules, *scan.root, currentDate(), home.native()));
        std::vector<std::string> told;
        for (const SpaceSaverFinding& finding : findings)
            told.push_back(finding.id.substr(12) + " " + std::to_string(finding.paths.size()) + " " +
                           std::string(rawValue(finding.safety)));
        std::vector<std::string> expected{"above 1 caution", "home 1 caution", "downloads 1 caution"};
        if (home.native().starts_with((world / "link").native())) // elsewhere it is nobody's home
            expected.emplace_back("written 1 caution");
        expected.emplace_back("whole 1 reviewNeeded");
        EXPECT_EQ(told, expected);
        // Taken from the tree, whichever name is asked for.
        const auto lookup = treeLookup(scan.root);
        EXPECT_EQ(SpaceSaverMeasuring::nodeAt(probe.home / "Downloads", lookup, HomeFolder(probe.home)),
                  scan.root->node((real / "Downloads").native()));
    }
}

/// A home in which every kind of step finds something.
void fillHome(const TemporaryFolder& folder) {
    folder.makeFile(".npm/_cacache/x", 1000);
    folder.makeFile("Library/Caches/pip/wheel", 800);
    folder.makeFile("projects/site/node_modules/left/index.js", 600);
    folder.makeFile("big.bin", 6000);
    folder.makeFile("Downloads/Tool-1.0.dmg", 400);
    folder.makeFile("Downloads/Tool-2.0.dmg", 500);
    folder.makeFile(".config/editor/Cache/data", 300);
    folder.makeFile(".Trash/old", 200);
}

TEST(SpaceSaverProbe, RunDoesEverythingAndDeliversOnTheWay) {
    Home home;
    fillHome(home.folder);
    home.probe.runTool = [](const std::string&, const std::vector<std::string>&, double) {
        return CommandResult{.exitCode = 0,
                             .standardOutput = "com.apple.TimeMachine.2024-05-01-101010.local\n",
                             .standardError = ""};
    };

    std::vector<SpaceSaverFinding> delivered;
    SpaceSaverProbe::Request request;
    request.scanResult = DiskScanner().scan(home.folder.path()).get();
    request.largeFileThreshold = 5000;
    request.oldThreshold = 5000;
    request.rules = {{.id = "dmg", .name = "Images", .extensions = {"dmg"}},
                     {.id = "off", .name = "Off", .isEnabled = false, .extensions = {"dmg"}}};
    request.onPartial = [&](const std::vector<SpaceSaverFinding>& findings) {
        EXPECT_FALSE(findings.empty());
        delivered.insert(delivered.end(), findings.begin(), findings.end());
    };
    const auto findings = home.probe.run(request).get();

    std::vector<std::string> ids;
    for (const SpaceSaverFinding& finding : findings) {
        ids.push_back(finding.id);
        EXPECT_FALSE(finding.title.empty() || finding.subtitle.empty() || finding.explanation.empty())
            << finding.id;
    }
    EXPECT_THAT(ids, testing::UnorderedElementsAre("npmCache", "pipCache", "userCaches", "nodeModules",
                                                   "largeFiles", "installerArchives", "applicationCaches",
                                                   "trash", "cleanupRule:dmg", "timeMachineSnapshots"));
    EXPECT_EQ(ids.back(), "timeMachineSnapshots");
    EXPECT_EQ(sorted(delivered), findings);

    // Without a scan everything else is still found, from the disk.
    request.scanResult.reset();
    request.includeSnapshots = false;
    request.onPartial = nullptr;
    std::set<std::string> withoutScan;
    for (const SpaceSaverFinding& finding : home.probe.run(request).get()) {
        withoutScan.insert(finding.id);
        EXPECT_THAT(findings, testing::Contains(finding));
    }
    EXPECT_THAT(withoutScan, ElementsAre("applicationCaches", "installerArchives", "npmCache", "pipCache",
                                         "trash", "userCaches"));
}

TEST(SpaceSaverProbe, FirstFindingsArriveWhileOthersAreLookedFor) {
    Home home;
    fillHome(home.folder);
    std::promise<void> gate;
    const auto opened = gate.get_future().share();
    home.probe.trashFolders = [&](const fs::path& path) {
        opened.wait();
        return std::vector<fs::path>{path / ".Trash"};
    };
    std::promise<std::string> first;
    std::atomic<bool> isFirst = true;
    auto future = home.probe.run({.onPartial = [&](const std::vector<SpaceSaverFinding>& findings) {
        if (isFirst.exchange(false))
            first.set_value(findings.front().id);
    }});
    EXPECT_EQ(first.get_future().get(), "npmCache");
    EXPECT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    gate.set_value();
    EXPECT_THAT(future.get(), testing::Contains(testing::Field(&SpaceSaverFinding::id, "trash")));
}

TEST(SpaceSaverProbe, CancellingEndsTheRun) {
    const Home home;
    fillHome(home.folder);
    const CancellationToken before;
    before.cancel();
    EXPECT_THROW(home.probe.run({}, before).get(), ScanError);

    const CancellationToken during;
    int deliveries = 0;
    auto future = home.probe.run({.onPartial =
                                      [&](const std::vector<SpaceSaverFinding>&) {
                                          ++deliveries;
                                          during.cancel();
                                      }},
                                 during);
    try {
        future.get();
        ADD_FAILURE() << "not cancelled";
    } catch (const ScanError& error) {
        EXPECT_EQ(error.kind(), ScanError::Kind::cancelled);
    }
    EXPECT_EQ(deliveries, 1);
}

} // namespace
} // namespace tarnwell
