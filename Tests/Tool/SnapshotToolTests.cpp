// The snapshot commands of the real program, on real folders.

#include "TarnwellCore/Analysis/Shell.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

TEST(SnapshotTool, ASessionShowsWhatGrewShrankCameAndWent) {
    const test::TemporaryFolder folder;
    const std::string home = folder.makeFolder("home");
    const std::string x = folder.makeFolder("x");
    const auto file = [&](const char* path, std::uint64_t megabytes) {
        folder.makeFile("x/" + std::string(path), megabytes * 1'000'000);
    };
    /// What the program prints when all goes well, with a home of its own.
    const auto output = [&](const std::vector<std::string>& arguments) {
        std::vector<std::string> command{"HOME=" + home, "CFFIXED_USER_HOME=" + home,
                                         "XDG_DATA_HOME=" + home + "/data", TARNWELL_TOOL, "snapshot"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const CommandResult result = Shell::run("/usr/bin/env", command, 60).value();
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

} // namespace
} // namespace tarnwell
