// The snapshot commands of the real program, on real folders.

#include "TarnwellCore/Analysis/Shell.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

/// Runs the program with a home of its own.
CommandResult run(const std::string& home, const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"HOME=" + home, "CFFIXED_USER_HOME=" + home,
                                     "XDG_DATA_HOME=" + home + "/data", TARNWELL_TOOL, "snapshot"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return Shell::run("/usr/bin/env", command, 60).value();
}

TEST(SnapshotTool, ASessionShowsWhatGrewShrankCameAndWent) {
    const test::TemporaryFolder folder;
    const std::string home = folder.makeFolder("home");
    const std::string x = folder.makeFolder("x");
    const auto file = [&](const char* path, std::uint64_t megabytes) {
        folder.makeFile("x/" + std::string(path), megabytes * 1'000'000);
    };
    /// What the program prints when all goes well.
    const auto output = [&](const std::vector<std::string>& arguments) {
        const CommandResult result = run(home, arguments);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.standardError, "");
        return result.standardOutput;
    };

    file("Movies/long.mov", 30);
    file("Mail/inbox", 2);
    file("Mail/draft", 0);
    file("Photos/raw/old", 12);
    file("Photos/raw/new", 1);
    EXPECT_THAT(output({"save", x}),
                testing::MatchesRegex("Saved snapshot [-0-9A-F]{36}\n" + x + "\n45 MB on disk\n"));
    file("Movies/long.mov", 5);
    file("Mail/inbox", 21);
    file("Mail/draft", 13);
    fs::remove(x + "/Photos/raw/old");
    file("Photos/raw/new", 4);
    file("Downloads/image.iso", 15);
    file("Downloads/readme", 1);
    const std::string saved = output({"save", x, "--json"});
    EXPECT_THAT(saved, testing::StartsWith("{\n  \"createdAt\": \"20"));

    const std::string list = output({"list"});
    ASSERT_THAT(list,
                testing::MatchesRegex("([-0-9A-F]{36}  [-0-9]{10}T[0-9:]{8}Z  (45|59) MB  " + x + "\n){2}"));
    const std::string newest = list.substr(0, 36);
    const std::string oldest = list.substr(list.find('\n') + 1, 36);
    EXPECT_THAT(saved, testing::HasSubstr(newest));

    const std::string difference = "Before " + oldest + "  " + x + "\nAfter " + newest + "  " + x +
                                   "\nChanges of at least 10 MB (allocated size):\n"
                                   "+32 MB  grew  Mail\n"
                                   "-25 MB  shrank  Movies\n"
                                   "-25 MB  shrank  Movies/long.mov\n"
                                   "+19 MB  grew  Mail/inbox\n"
                                   "+16 MB  added  Downloads\n"
                                   "+15 MB  added  Downloads/image.iso\n"
                                   "+14 MB  grew  (root)\n"
                                   "+13 MB  belowThreshold  Mail/draft\n"
                                   "-12 MB  removed  Photos/raw/old\n"
                                   "Total change: +14 MB\n";
    EXPECT_EQ(output({"diff", "previous", "latest"}), difference);
    EXPECT_EQ(output({"diff", oldest.substr(0, 35), newest}), difference);
}

TEST(SnapshotTool, AFullDiskIsReportedAndLosesNothing) {
    const auto image = test::MountedImage::make({.type = "tmpfs", .size = 200'000});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path home = (*image)->path();
    const test::TemporaryFolder folder;
    folder.makeFile("file", 2'000'000);
    ASSERT_EQ(run(home, {"save", folder.path()}).exitCode, 0);
    const std::string before = run(home, {"list"}).standardOutput;
    std::ofstream(home / "filler") << std::string(1'000'000, 'x'); // as much of it as there is room for
    const CommandResult result = run(home, {"save", folder.path(), "--json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError,
                testing::MatchesRegex("Could not write " + home.string() +
                                      "/.*/[-0-9A-F]{36}.json: No space left on device\n"));
    EXPECT_EQ(run(home, {"list"}).standardOutput, before);
    fs::remove(home / "filler");
    std::ptrdiff_t files = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(home))
        files += entry.is_regular_file() ? 1 : 0;
    EXPECT_EQ(files, 1) << "nothing is left of the one that failed";
}

} // namespace
} // namespace tarnwell
