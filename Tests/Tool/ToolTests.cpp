// The tool as its users meet it: a process with arguments, streams and an exit code.

#include "TarnwellCLIKit/CLIUsage.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Terminal.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
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
int exitCodeOf(const Words& arguments, const std::function<void()>& prepare) {
    std::vector<char*> values{const_cast<char*>(TARNWELL_TOOL)};
    for (const std::string& argument : arguments)
        values.push_back(const_cast<char*>(argument.c_str()));
    values.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGPIPE, SIG_DFL);
        prepare();
        ::execv(TARNWELL_TOOL, values.data());
        ::_exit(126);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Runs the tool with its streams in files.
Outcome run(const Words& arguments, const std::function<void()>& prepare = [] {}) {
    const test::TemporaryFolder folder;
    const fs::path output = folder.makeFile("output");
    const fs::path error = folder.makeFile("error");
    Outcome outcome;
    outcome.exitCode = exitCodeOf(arguments, [&] {
        ::dup2(::open(output.c_str(), O_WRONLY), STDOUT_FILENO);
        ::dup2(::open(error.c_str(), O_WRONLY), STDERR_FILENO);
        prepare();
    });
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

TEST(Tool, ExitCodesAndStreamsTellFailuresApart) {
    const test::TemporaryFolder folder;
    const std::string file = folder.makeFile("file");
    const std::string missing = folder / "missing";
    const std::string end = "\nSee `tarnwell --help` for usage.\n";
    const struct {
        Words arguments;
        Outcome outcome;
    } cases[] = {
        {{}, {2, "", "tarnwell: no command given" + end}},
        {{"\xFF\x1B"}, {2, "", "tarnwell: unknown command '\xFF\x1B'" + end}},
        {{"scan", missing, "--json"}, {1, "", missing + " does not exist.\n"}},
        {{"scan", file}, {1, "", file + " is not a folder.\n"}},
        {{"--help"}, {0, std::string(CLIUsage::text()), ""}},
    };
    for (const auto& each : cases)
        EXPECT_EQ(run(each.arguments), each.outcome) << testing::PrintToString(each.arguments);
}

/// What a terminal gets to see where it is the stream of the tool; the other streams are files.
std::string shownOnTerminal(int stream, const Words& arguments) {
    test::Terminal terminal;
    (void)run(arguments, [&] { terminal.replace(stream); }); // short enough not to be waited for
    std::string shown = terminal.readToEnd();
    std::erase(shown, '\r');
    return shown;
}

TEST(Tool, ATerminalIsShownNamesWithEscapes) {
    const test::TemporaryFolder folder;
    (void)folder.makeFile("\x1B[2J\n\u202Egpj/file", 1'000);
    const std::string path = folder.path();
    const Words scan{"scan", path, "--size-mode=apparent", "--depth=2"};
    EXPECT_EQ(shownOnTerminal(STDOUT_FILENO, scan),
              "1 KB  100.0%  \\x1B[2J\\n\\u{202E}gpj\n1 KB  100.0%    file\n1 KB  total\n");
    const Words unknown{"\x1B[2J\n"};
    const std::string end = "'\nSee `tarnwell --help` for usage.\n";
    EXPECT_EQ(shownOnTerminal(STDERR_FILENO, unknown), "tarnwell: unknown command '\\x1B[2J\\n" + end);
    EXPECT_EQ(shownOnTerminal(STDERR_FILENO, {"scan", "/no/\x9B"}), "/no/\\x9B does not exist.\n");
    // Each stream is judged by itself.
    EXPECT_EQ(shownOnTerminal(STDERR_FILENO, scan), "");
    EXPECT_EQ(run(scan).output, "1 KB  100.0%  \x1B[2J\n\u202Egpj\n1 KB  100.0%    file\n1 KB  total\n");
    EXPECT_EQ(run(unknown).error, "tarnwell: unknown command '\x1B[2J\n" + end);
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
    const int exitCode = exitCodeOf(scan, [&] {
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
    });
    EXPECT_EQ(exitCode, 0);
    ::close(ends[1]);
    reader.join();
    ::close(ends[0]);
    EXPECT_EQ(received, expected);
}

TEST(Tool, ADamagedTypeDatabaseOfTheUserIsNoDanger) {
    const test::TemporaryFolder folder;
    (void)folder.makeFile("tree/letter.kwd");
    // The head of a cache, whose offsets lead beyond its end.
    folder.writeFile("data/mime/mime.cache", std::string("\0\1\0\2", 4) + std::string(36, '\x30'));
    const Outcome outcome =
        run({"scan", folder / "tree"}, [&] { ::setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1); });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
}

} // namespace
} // namespace tarnwell
