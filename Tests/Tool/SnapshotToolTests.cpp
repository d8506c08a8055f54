// The snapshot commands of the real program, on real folders.

#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

/// The program with a home of its own.
class SnapshotTool : public testing::Test {
protected:
    test::TemporaryFolder folder;
    fs::path home = folder.makeFolder("home");

    std::vector<std::string> command(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{"HOME=" + home.string(), "CFFIXED_USER_HOME=" + home.string(),
                                         "XDG_DATA_HOME=" + (home / "data").string(), TARNWELL_TOOL,
                                         "snapshot"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }

    CommandResult run(const std::vector<std::string>& arguments) const {
        return Shell::run("/usr/bin/env", command(arguments), 60).value();
    }

    /// What the program prints when all goes well.
    std::string output(const std::vector<std::string>& arguments) const {
        const CommandResult result = run(arguments);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.standardError, "");
        return result.standardOutput;
    }

    /// The folder in which the program stores its snapshots; it must have stored one.
    fs::path storeFolder() const {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(home))
            if (entry.path().filename() == "Snapshots")
                return entry.path();
        ADD_FAILURE() << "no store below " << home;
        return home / "nowhere";
    }
};

TEST_F(SnapshotTool, ASessionShowsWhatGrewShrankCameAndWent) {
    const fs::path x = folder.makeFolder("x");
    const auto file = [&](const char* path, std::uint64_t megabytes) {
        folder.makeFile("x/" + std::string(path), megabytes * 1'000'000);
    };
    file("Movies/long.mov", 30);
    file("Movies/short.mov", 3);
    file("Mail/inbox", 2);
    file("Mail/outbox", 1);
    file("Mail/draft", 0);
    file("Photos/raw/old", 12);
    file("Photos/raw/new", 1);
    file("notes", 4);
    EXPECT_THAT(output({"save", x}),
                testing::MatchesRegex("Saved snapshot [-0-9A-F]{36}\n" + x.string() + "\n53 MB on disk\n"));
    file("Movies/long.mov", 5);
    file("Mail/inbox", 20);
    file("Mail/draft", 11);
    fs::remove(x / "Photos/raw/old");
    file("Downloads/image.iso", 15);
    file("Downloads/readme", 1);
    file("notes", 12);
    file("Photos/raw/new", 4);
    const std::string saved = output({"save", x, "--json"});
    EXPECT_THAT(saved, testing::StartsWith("{\n  \"createdAt\": \"20"));

    const std::string list = output({"list"});
    ASSERT_THAT(list, testing::MatchesRegex("([-0-9A-F]{36}  [-0-9]{10}T[0-9:]{8}Z  (53|72) MB  " +
                                            x.string() + "\n){2}"));
    const std::string newest = list.substr(0, 36);
    const std::string oldest = list.substr(list.find('\n') + 1, 36);
    EXPECT_THAT(saved, testing::HasSubstr(newest));

    const std::string heading =
        "Before " + oldest + "  " + x.string() + "\nAfter " + newest + "  " + x.string() + "\n";
    const std::string difference = heading + "Changes of at least 10 MB (allocated size):\n"
                                             "+29 MB  grew  Mail\n"
                                             "-25 MB  shrank  Movies\n"
                                             "-25 MB  shrank  Movies/long.mov\n"
                                             "+19 MB  grew  (root)\n"
                                             "+18 MB  grew  Mail/inbox\n"
                                             "+16 MB  added  Downloads\n"
                                             "+15 MB  added  Downloads/image.iso\n"
                                             "-12 MB  removed  Photos/raw/old\n"
                                             "+11 MB  belowThreshold  Mail/draft\n"
                                             "Total change: +19 MB\n";
    EXPECT_EQ(output({"diff", "previous", "latest"}), difference);
    EXPECT_EQ(output({"diff", oldest.substr(0, 35), newest}), difference);
    EXPECT_THAT(
        output({"diff", "PREVIOUS", "Latest", "--json"}),
        testing::HasSubstr("\"isNested\": true,\n      \"kind\": \"grew\",\n      \"path\": \"Mail/inbox\""));
    EXPECT_THAT(output({"diff", newest, newest}),
                testing::EndsWith("No changes of at least 10 MB.\nTotal change: 0 bytes\n"));
}

TEST_F(SnapshotTool, KilledAtAnyMomentItStoresWholeSnapshotsOrNone) {
    folder.makeFile("x/file", 2'000'000);
    const auto start = std::chrono::steady_clock::now();
    output({"save", folder / "x"});
    const auto duration = std::chrono::steady_clock::now() - start;
    const std::vector<std::string> words = command({"save", folder / "x"});
    std::vector<char*> arguments{const_cast<char*>("env")};
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    std::mt19937 random(11);
    const fs::path store = storeFolder();
    for (int round = 0; round < 100; ++round) {
        const pid_t process = ::fork();
        if (process == 0) {
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
            ::execv("/usr/bin/env", arguments.data());
            ::_exit(127);
        }
        std::this_thread::sleep_for(duration * (random() % 100) / 100);
        ::kill(process, SIGKILL);
        ASSERT_EQ(::waitpid(process, nullptr, 0), process);
    }
    std::ptrdiff_t files = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(store))
        files += entry.path().extension() == ".json" ? 1 : 0;
    const std::vector<ScanSnapshot> snapshots = SnapshotStore(store).list();
    EXPECT_EQ(std::ssize(snapshots), files);
    EXPECT_EQ(std::ranges::count(output({"list"}), '\n'), files);
    for (const ScanSnapshot& snapshot : snapshots)
        EXPECT_EQ(snapshot.entries, snapshots.front().entries);
}

TEST_F(SnapshotTool, AFullDiskIsReportedAndLosesNothing) {
    const auto image = test::MountedImage::make({.type = "tmpfs", .size = 200'000});
    if (!image)
        GTEST_SKIP() << image.error();
    home = (*image)->path();
    folder.makeFile("x/file", 2'000'000);
    output({"save", folder / "x"});
    const std::string before = output({"list"});
    // The shell stops at the end of the disk and says so; that is meant.
    EXPECT_NE(
        Shell::run("/bin/sh", {"-c", "cat /dev/zero > \"$0\"/filler", home.string()}, 60).value().exitCode,
        0);
    const CommandResult result = run({"save", folder / "x", "--json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError,
                testing::MatchesRegex("Could not write " + storeFolder().string() +
                                      "/[-0-9A-F]{36}.json: No space left on device\n"));
    EXPECT_EQ(std::distance(fs::directory_iterator(storeFolder()), fs::directory_iterator()), 1);
    EXPECT_EQ(output({"list"}), before);
}

} // namespace
} // namespace tarnwell
