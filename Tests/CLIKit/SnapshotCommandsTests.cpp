#include "TarnwellCLIKit/CLIRunner.hpp"
#include "TarnwellCLIKit/SnapshotCommands.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"

#include "Tests/Support/SampleSnapshots.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::makeEntry;
using test::makeSnapshot;

/// A store in a folder of its own, and a scan of a tree made by hand.
class SnapshotCommands : public testing::Test {
protected:
    test::TemporaryFolder folder;
    std::vector<std::string> scannedPaths;
    CLIServices services{
        .scan =
            [this](const fs::path& path) {
                scannedPaths.push_back(path);
                return std::async(std::launch::deferred, [] { return scanResult(); });
            },
        .snapshotStore = [this] { return std::make_unique<SnapshotStore>(folder / "store"); },
    };

    static ScanResult scanResult() {
        FileTreeBuilder builder("/home/al\xFFice");
        FileNode* parent = &builder.root();
        for (int level = 1; level <= 5; ++level) {
            parent = &builder.addFolder(*parent, "level" + std::to_string(level));
            builder.addFile(*parent, "small", 999'999);
            builder.addFile(*parent, "large", 1'000'000);
        }
        ScanResult result;
        result.root = builder.finish();
        result.stats.totalSize = result.stats.totalAllocatedSize = result.stats.totalReclaimableSize =
            48'200'000'000;
        result.stats.fileCount = 10;
        return result;
    }

    CLIResult run(const std::vector<std::string>& arguments) { return CLIRunner::run(arguments, services); }
    void save(const ScanSnapshot& snapshot) { services.snapshotStore()->save(snapshot); }

    static CLIResult printed(std::string text) { return {0, std::move(text), ""}; }
    static CLIResult failed(std::string text) { return {1, "", std::move(text)}; }
};

TEST_F(SnapshotCommands, SaveStoresWhatTheScanFound) {
    const CLIResult text = run({"snapshot", "save", "~/x"});
    const std::vector<ScanSnapshot> stored = services.snapshotStore()->list();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(text,
              printed("Saved snapshot " + stored[0].id.text() + "\n/home/al\xFFice\n48.2 GB on disk\n"));
    EXPECT_THAT(scannedPaths, testing::ElementsAre((homeDirectory() / "x").string()));
    EXPECT_EQ(stored[0].rootPath, "/home/al\xFFice");
    EXPECT_EQ(stored[0].minimumSize, 1'000'000);
    std::vector<std::string> paths;
    for (const ScanSnapshot::Entry& entry : stored[0].entries)
        paths.push_back(entry.path);
    EXPECT_THAT(paths, testing::ElementsAre("", "level1", "level1/level2", "level1/level2/level3",
                                            "level1/level2/level3/level4", "level1/level2/level3/large",
                                            "level1/level2/large", "level1/large"));
}

TEST_F(SnapshotCommands, SaveTellsItInJSON) {
    const CLIResult result = run({"snapshot", "save", "/x", "--json"});
    const std::vector<ScanSnapshot> stored = services.snapshotStore()->list();
    ASSERT_EQ(stored.size(), 1u);
    const std::string date =
        result.standardOutput.substr(std::string_view("{\n  \"createdAt\": \"").size(), 20);
    EXPECT_EQ(dateFromISO8601(date), std::optional(stored[0].createdAt));
    EXPECT_EQ(result,
              printed("{\n  \"createdAt\": \"" + date + "\",\n  \"entryCount\": 8,\n  \"id\": \"" +
                      stored[0].id.text() +
                      "\",\n"
                      "  \"rootPath\": \"/home/al\uFFFDice\",\n  \"totalAllocatedSize\": 48200000000,\n"
                      "  \"totalFiles\": 10,\n  \"totalReclaimableSize\": 48200000000,\n"
                      "  \"totalSize\": 48200000000,\n  \"version\": 1\n}\n"));
}

TEST_F(SnapshotCommands, FailuresGoToStandardErrorAlone) {
    const CLIServices working = services;
    services.scan = [](const fs::path&) {
        std::promise<ScanResult> promise;
        promise.set_exception(std::make_exception_ptr(std::runtime_error("/x does not exist.")));
        return promise.get_future();
    };
    EXPECT_EQ(run({"snapshot", "save", "/x"}), failed("/x does not exist.\n"));
    EXPECT_FALSE(fs::exists(folder / "store"));

    services = working;
    const std::string obstacle = folder.writeFile("store", "").string();
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"snapshot", "save", "/x"},
                                                      {"snapshot", "list", "--json"},
                                                      {"snapshot", "diff", "a", "b"}})
        EXPECT_EQ(run(arguments), failed("Could not create " + obstacle + ": Not a directory\n"));
}

TEST_F(SnapshotCommands, ListShowsTheNewestFirst) {
    EXPECT_EQ(run({"snapshot", "list"}), printed("No snapshots.\n"));
    EXPECT_EQ(run({"snapshot", "list", "--json"}), printed("{\n  \"entries\": [],\n  \"version\": 1\n}\n"));
    const ScanSnapshot older = makeSnapshot(1714555800, 0);
    const ScanSnapshot newer = makeSnapshot(1714555801, 999'600);
    save(newer);
    save(older);
    EXPECT_EQ(run({"snapshot", "list"}),
              printed(newer.id.text() + "  2024-05-01T09:30:01Z  1000 KB  /home/alice\n" + older.id.text() +
                      "  2024-05-01T09:30:00Z  0 bytes  /home/alice\n"));
    const auto object = [](const ScanSnapshot& snapshot, const std::string& date, const std::string& size) {
        return "    {\n      \"createdAt\": \"" + date + "\",\n      \"entryCount\": 1,\n      \"id\": \"" +
               snapshot.id.text() +
               "\",\n      \"rootPath\": \"/home/alice\",\n      \"totalAllocatedSize\": " + size +
               ",\n      \"totalFiles\": 10,\n      \"totalReclaimableSize\": " + size +
               ",\n      \"totalSize\": " + size + "\n    }";
    };
    EXPECT_EQ(run({"snapshot", "list", "--json"}),
              printed("{\n  \"entries\": [\n" + object(newer, "2024-05-01T09:30:01Z", "999600") + ",\n" +
                      object(older, "2024-05-01T09:30:00Z", "0") + "\n  ],\n  \"version\": 1\n}\n"));
}

TEST_F(SnapshotCommands, DiffListsChangesFromTenMillionBytes) {
    ScanSnapshot before = makeSnapshot(100, 100'000'000);
    before.entries.insert(before.entries.end(),
                          {makeEntry("Movies", 80'000'000, 5, true), makeEntry("Movies/gone", 50'000'000),
                           makeEntry("same", 20'000'000), makeEntry("nearly", 1'000'000),
                           makeEntry("Cache", 12'000'000, 3, true), makeEntry("Cache/shrunk", 11'000'000)});
    ScanSnapshot after = makeSnapshot(200, 61'999'999);
    after.entries.insert(after.entries.end(),
                         {makeEntry("Movies", 30'000'000, 4, true), makeEntry("same", 20'000'000),
                          makeEntry("nearly", 10'999'999), makeEntry("Cache", 2'000'000, 3, true),
                          makeEntry("new", 10'000'000)});
    save(before);
    save(after);
    const std::string ids[] = {before.id.text(), after.id.text()};
    EXPECT_EQ(run({"snapshot", "diff", "PREVIOUS", ids[1].substr(0, 30)}),
              printed("Before " + ids[0] + "  /home/alice\nAfter " + ids[1] +
                      "  /home/alice\n"
                      "Changes of at least 10 MB (allocated size):\n"
                      "-50 MB  shrank  Movies\n"
                      "-50 MB  removed  Movies/gone\n"
                      "-38 MB  shrank  (root)\n"
                      "-11 MB  belowThreshold  Cache/shrunk\n"
                      "-10 MB  shrank  Cache\n"
                      "+10 MB  belowThreshold  new\n"
                      "Total change: -38 MB\n"));
    EXPECT_EQ(run({"snapshot", "diff", "latest", "latest"}),
              printed("Before " + ids[1] + "  /home/alice\nAfter " + ids[1] +
                      "  /home/alice\nNo changes of at least 10 MB.\nTotal change: 0 bytes\n"));

    const std::string json = run({"snapshot", "diff", "previous", "latest", "--json"}).standardOutput;
    EXPECT_THAT(json,
                testing::StartsWith("{\n  \"after\": {\n    \"createdAt\": \"1970-01-01T00:03:20Z\",\n    "
                                    "\"entryCount\": 6,\n    \"id\": \"" +
                                    ids[1] + "\",\n    \"rootPath\": \"/home/alice\",\n"));
    EXPECT_THAT(json, testing::HasSubstr("\"before\": {\n    \"createdAt\": \"1970-01-01T00:01:40Z\""));
    EXPECT_THAT(json,
                testing::HasSubstr("  \"changes\": [\n    {\n      \"after\": 30000000,\n      \"before\": "
                                   "80000000,\n      \"delta\": -50000000,\n      \"isNested\": false,\n"
                                   "      \"kind\": \"shrank\",\n      \"path\": \"Movies\"\n    },\n    {\n"
                                   "      \"after\": 0,\n      \"before\": 50000000,\n      \"delta\": "
                                   "-50000000,\n      \"isNested\": true,\n      \"kind\": \"removed\",\n"
                                   "      \"path\": \"Movies/gone\"\n    },\n"));
    EXPECT_THAT(json, testing::EndsWith("\n  ],\n  \"rootsMatch\": true,\n  \"sizeMode\": \"allocated\",\n"
                                        "  \"totalChange\": -38000001,\n  \"version\": 1\n}\n"));
}

TEST_F(SnapshotCommands, TerminalsAreShownNamesWithEscapes) {
    ScanSnapshot before = makeSnapshot(100, 50'000'000);
    before.entries.push_back(makeEntry("\x1B[31m\n", 20'000'000));
    ScanSnapshot after = makeSnapshot(200, 5);
    before.rootPath = after.rootPath = "/a\u202Eb";
    save(before);
    save(after);
    const auto shown = [&](const std::vector<std::string>& arguments, CLIStyles styles) {
        const CLIResult result = CLIRunner::run(arguments, services, {}, styles);
        return result.standardOutput + result.standardError;
    };
    const CLIStyles output{.output = NameStyle::harmless};
    const CLIStyles error{.error = NameStyle::harmless};
    const std::vector<std::string> diff{"snapshot", "diff", "previous", "latest"};
    EXPECT_THAT(shown(diff, output), testing::HasSubstr("  /a\\u{202E}b\nAfter "));
    EXPECT_THAT(shown(diff, output), testing::HasSubstr("\n-20 MB  belowThreshold  \\x1B[31m\\n\n"));
    EXPECT_EQ(shown(diff, error), run(diff).standardOutput);
    EXPECT_THAT(shown({"snapshot", "list"}, output), testing::EndsWith("  /a\\u{202E}b\n"));
    EXPECT_THAT(shown({"snapshot", "list", "--json"}, output), testing::HasSubstr("\"/a\\u202Eb\""));
    EXPECT_THAT(shown({"snapshot", "save", "x"}, output), testing::HasSubstr("\n/home/al\\xFFice\n"));
    EXPECT_EQ(shown({"snapshot", "diff", "\t", "x"}, error), "No snapshot matches '\\t'.\n");
    EXPECT_EQ(shown({"snapshot", "diff", "\t", "x"}, output), "No snapshot matches '\t'.\n");
}

TEST_F(SnapshotCommands, DiffSaysWhenTheRootsDiffer) {
    ScanSnapshot after = makeSnapshot(200, 5);
    after.rootPath = "/home/bob";
    save(makeSnapshot(100, 4));
    save(after);
    const std::string text = run({"snapshot", "diff", "previous", "latest"}).standardOutput;
    EXPECT_THAT(text, testing::EndsWith("  /home/bob\nThese snapshots were captured from different roots.\n"
                                        "No changes of at least 10 MB.\nTotal change: +1 byte\n"));
}

TEST_F(SnapshotCommands, DiffExplainsReferencesAndAltersNothing) {
    EXPECT_EQ(run({"snapshot", "diff", "latest", "nonsense"}), failed("No snapshots are stored.\n"));
    const ScanSnapshot only = makeSnapshot();
    save(only);
    const std::string file = (folder / ("store/" + only.id.text() + ".json")).string();
    const std::string bytes = test::readFile(file);
    EXPECT_EQ(
        run({"snapshot", "diff", "latest", "previous", "--json"}),
        failed("There is no previous snapshot. `previous` is the second newest, so at least two snapshots "
               "have to be stored.\n"));
    EXPECT_EQ(run({"snapshot", "diff", "nonsense", "previous"}), failed("No snapshot matches 'nonsense'.\n"));
    EXPECT_EQ(test::readFile(file), bytes);
}

} // namespace
} // namespace tarnwell
