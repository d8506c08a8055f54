// The tool as its users meet it: a process with arguments, streams and an exit code.

#include "TarnwellCLIKit/CLIUsage.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using Words = std::vector<std::string>;

struct Outcome {
    /// 128 and the signal for a process that a signal ended.
    int exitCode = -1;
    std::string output;
    std::string error;

    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << "exit code " << outcome.exitCode << "\noutput: " << outcome.output
            << "\nerror: " << outcome.error;
}

/// The tool's exit code. `prepare` runs in the new process, before it becomes the tool.
int exitCodeOf(const Words& arguments, const std::function<void()>& prepare,
               const char* program = TARNWELL_TOOL) {
    std::vector<char*> values{const_cast<char*>(program)};
    for (const std::string& argument : arguments)
        values.push_back(const_cast<char*>(argument.c_str()));
    values.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGPIPE, SIG_DFL);
        prepare();
        ::execv(program, values.data());
        ::_exit(126);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Runs the tool with its streams in files.
Outcome run(
    const Words& arguments, const std::function<void()>& prepare = [] {},
    const char* program = TARNWELL_TOOL) {
    const test::TemporaryFolder folder;
    const fs::path output = folder.makeFile("output");
    const fs::path error = folder.makeFile("error");
    Outcome outcome;
    outcome.exitCode = exitCodeOf(
        arguments,
        [&] {
            ::dup2(::open(output.c_str(), O_WRONLY), STDOUT_FILENO);
            ::dup2(::open(error.c_str(), O_WRONLY), STDERR_FILENO);
            prepare();
        },
        program);
    outcome.output = test::readFile(output);
    outcome.error = test::readFile(error);
    return outcome;
}

/// A folder whose listing is longer than a pipe holds.
void makeManyFiles(const test::TemporaryFolder& folder) {
    for (int number = 0; number < 1'500; ++number)
        (void)folder.makeFile("file number " + std::to_string(number) + " with a longer name");
}

TEST(Tool, ListsAFolderInEveryForm) {
    const test::TemporaryFolder folder;
    (void)folder.makeFile("big", 3'000);
    const std::string odd = folder.takesAnyName() ? "\xFF" : "\xC3\xA4";
    (void)folder.makeFile("sub/small, \"\n" + odd, 1'000);
    const std::string path = folder.path();
    EXPECT_EQ(
        run({"scan", path, "--size-mode", "apparent", "--depth=2"}),
        (Outcome{0,
                 "3 KB  75.0%  big\n1 KB  25.0%  sub\n1 KB  100.0%    small, \"\n" + odd + "\n4 KB  total\n",
                 ""}));
    EXPECT_EQ(run({"scan", path, "--size-mode", "apparent", "--top=0"}), (Outcome{0, "4 KB  total\n", ""}));
    const std::string csv = run({"scan", path, "--csv", "--depth=9"}).output;
    EXPECT_NE(
        csv.find("\n\"small, \"\"\n" + odd + "\",\"" + path + "/sub/small, \"\"\n" + odd + "\",false,1000,"),
        std::string::npos)
        << csv;
    const std::string json = run({"scan", path, "--json", "--depth=9"}).output;
    const std::string shown = folder.takesAnyName() ? "\xEF\xBF\xBD" : odd;
    EXPECT_NE(json.find("\"name\": \"small, \\\"\\n" + shown + "\""), std::string::npos) << json;
    EXPECT_TRUE(json.ends_with("\n  \"totalSize\": 4000,\n  \"version\": 1\n}\n")) << json;
}

TEST(Tool, UsageErrorsLeaveStandardOutputEmpty) {
    const std::string end = "\nSee `tarnwell --help` for usage.\n";
    EXPECT_EQ(run({}), (Outcome{2, "", "tarnwell: no command given" + end}));
    EXPECT_EQ(run({"scan"}), (Outcome{2, "", "tarnwell: scan requires a path" + end}));
    EXPECT_EQ(run({"scan", "/", "--size-mode=\xFF"}),
              (Outcome{2, "", "tarnwell: --size-mode needs apparent, allocated, or reclaimable" + end}));
    EXPECT_EQ(run({"\xFF\x1B"}), (Outcome{2, "", "tarnwell: unknown command '\xFF\x1B'" + end}));
    EXPECT_EQ(run({"--help"}), (Outcome{0, std::string(CLIUsage::text()), ""}));
}

TEST(Tool, RelativePathsAndTildes) {
    const test::TemporaryFolder folder;
    (void)folder.makeFile("sub/inner/file", 2'000);
    const std::string expected = "2 KB  100.0%  file\n2 KB  total\n";
    const auto atFolder = [&] {
        if (::chdir(folder.path().c_str()) != 0)
            ::_exit(125);
        ::setenv("HOME", folder.path().c_str(), 1);
        ::setenv("CFFIXED_USER_HOME", folder.path().c_str(), 1); // what Foundation reads
    };
    for (const char* path : {"sub/inner", "./sub/../sub/inner//", "~/sub/inner"})
        EXPECT_EQ(run({"scan", path, "--size-mode=apparent"}, atFolder), (Outcome{0, expected, ""})) << path;
    EXPECT_EQ(run({"scan", "~no-such-user-at-all/x"}, atFolder),
              (Outcome{1, "", (folder / "~no-such-user-at-all/x").string() + " does not exist.\n"}));
}

TEST(Tool, RootsThatCannotBeScanned) {
    const test::TemporaryFolder folder;
    const fs::path file = folder.makeFile("file");
    const std::string missing = folder / "missing";
    EXPECT_EQ(run({"scan", missing, "--json"}), (Outcome{1, "", missing + " does not exist.\n"}));
    EXPECT_EQ(run({"scan", file}), (Outcome{1, "", file.string() + " is not a folder.\n"}));
}

TEST(Tool, RootThatMayNotBeRead) {
    const test::TemporaryFolder folder;
    const fs::path locked = folder.makeFolder("locked");
    // Somebody without rights has to reach the tool, too.
    const fs::path tool = folder / "tool";
    fs::copy_file(TARNWELL_TOOL, tool);
    for (const fs::path& each : {folder.path(), tool})
        ::chmod(each.c_str(), 0755);
    ::chmod(locked.c_str(), 0);
    const std::string said = test::runUnprivileged([&] {
        int ends[2];
        if (::pipe(ends) != 0)
            return std::string("no pipe");
        const int exitCode = exitCodeOf(
            {"scan", locked},
            [&] {
                ::dup2(ends[1], STDOUT_FILENO);
                ::dup2(ends[1], STDERR_FILENO);
            },
            tool.c_str());
        char buffer[4096];
        const ssize_t length = ::read(ends[0], buffer, sizeof buffer);
        return std::to_string(exitCode) + " " +
               std::string(buffer, static_cast<std::size_t>(length > 0 ? length : 0));
    });
    EXPECT_EQ(said, "1 " + locked.string() +
                        " could not be opened (Permission denied). Tarnwell may need Full Disk Access.\n");
}

TEST(Tool, OutputThatNobodyTakesIsNoError) {
    const test::TemporaryFolder folder;
    makeManyFiles(folder);
    const Words scan{"scan", folder.path(), "--json"};
    const auto closedPipe = [] {
        int ends[2];
        if (::pipe(ends) != 0)
            ::_exit(125);
        ::close(ends[0]);
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[1]);
    };
    const auto fullDevice = [] { ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO); };
    const auto closedStreams = [] {
        ::close(STDOUT_FILENO);
        ::close(STDERR_FILENO);
    };
    EXPECT_EQ(run(scan, closedPipe), (Outcome{0, "", ""}));
    EXPECT_EQ(run(scan, closedStreams).exitCode, 0);
    EXPECT_EQ(run({"scan", folder / "missing"}, closedStreams).exitCode, 1);
    EXPECT_EQ(run({"scan"}, closedStreams).exitCode, 2);
    if (fs::exists("/dev/full")) {
        EXPECT_EQ(run(scan, fullDevice), (Outcome{0, "", ""}));
    }
}

TEST(Tool, SlowReadersGetEverything) {
    const test::TemporaryFolder folder;
    makeManyFiles(folder);
    const Words scan{"scan", folder.path(), "--json"};
    const std::string expected = run(scan).output;
    ASSERT_GT(expected.size(), 200'000u);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    std::string received;
    std::thread reader([&] {
        char buffer[3'000];
        for (ssize_t count = 0; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
            received.append(buffer, static_cast<std::size_t>(count));
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    EXPECT_EQ(exitCodeOf(scan,
                         [&] {
                             ::dup2(ends[1], STDOUT_FILENO);
                             ::close(ends[0]);
                             ::close(ends[1]);
                         }),
              0);
    ::close(ends[1]);
    reader.join();
    ::close(ends[0]);
    EXPECT_EQ(received, expected);
}

} // namespace
} // namespace tarnwell
