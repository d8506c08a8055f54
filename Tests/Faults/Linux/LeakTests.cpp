// What the tool leaves allocated or open at its end, for each command.

#include "Tests/Faults/Linux/FaultyProgram.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

constexpr int leakCode = 99;

std::string valgrind() {
    for (const char* place : {"/usr/bin/valgrind", "/usr/local/bin/valgrind"})
        if (::access(place, X_OK) == 0)
            return place;
    return {};
}

/// Runs the tool with its streams in files `output` and `error` of the folder.
int exitCodeOf(const fs::path& folder, std::vector<std::string> words) {
    words.insert(words.begin(),
                 {valgrind(), "-q", "--leak-check=full", "--errors-for-leak-kinds=definite,indirect,possible",
                  "--track-fds=yes", "--error-exitcode=" + std::to_string(leakCode), TARNWELL_TOOL});
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
        ::setenv("HOME", folder.c_str(), 1);
        (void)!std::freopen((folder / "output").c_str(), "w", stdout);
        (void)!std::freopen((folder / "error").c_str(), "w", stderr);
        ::close_range(STDERR_FILENO + 1, ~0U, 0); // what the test inherited is no leak
        std::vector<char*> values;
        for (std::string& word : words)
            values.push_back(word.data());
        values.push_back(nullptr);
        ::execv(values[0], values.data());
        ::_exit(126);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void expectNoLeak(const fs::path& folder, std::vector<std::string> words, int exitCode) {
    words.insert(words.begin(), TARNWELL_TOOL);
    const test::FaultyOutcome outcome = test::runWithFault(
        {.arguments = words,
         .environment = {"HOME=" + folder.string(), "XDG_DATA_HOME=" + (folder / "data").string()}},
        std::nullopt);
    EXPECT_EQ(outcome.exitCode, exitCode) << words.at(1) << outcome.error;
    EXPECT_EQ(outcome.count("descriptors"), 0) << words.at(1);
}

TEST(Leaks, NoCommandLeaksMemoryOrDescriptors) {
    // Valgrind runs no sanitized programs: those look for leaks themselves.
    const std::string reason = test::isSanitized()  ? test::whyNotFaulty()
                               : valgrind().empty() ? "valgrind is not installed"
                                                    : "";
    if (!reason.empty())
        GTEST_SKIP() << reason;
    const test::TemporaryFolder world;
    for (int depth = 0; depth < 5; ++depth)
        world.makeFile("tree/a/b/c/d/e/" + std::to_string(depth) + ".txt", 100);
    world.makeFile("tree/a/Tool.app/Contents/binary", 100);
    fs::create_hard_link(world / "tree/a/b/c/d/e/0.txt", world / "tree/a/again");
    const std::string tree = world / "tree";
    const struct {
        std::vector<std::string> words;
        int exitCode;
    } cases[] = {
        {{"--help"}, 0},
        {{"scan", tree, "--depth=9", "--top=2", "--size-mode=reclaimable"}, 0},
        {{"scan", tree, "--json", "--depth=9"}, 0},
        {{"scan", tree, "--csv"}, 0},
        {{"snapshot", "save", tree}, 0},
        {{"snapshot", "save", tree, "--json"}, 0},
        {{"snapshot", "list", "--json"}, 0},
        {{"snapshot", "diff", "previous", "latest"}, 0},
        {{"snapshot", "diff", "previous", "latest", "--json"}, 0},
        {{"scan", tree + "/missing"}, 1},
        {{"snapshot", "forget"}, 2},
    };
    for (const auto& each : cases) {
        std::string command;
        for (const std::string& word : each.words)
            command += word + " ";
        if (test::isSanitized()) {
            expectNoLeak(world.path(), each.words, each.exitCode);
            continue;
        }
        const int exitCode = exitCodeOf(world.path(), each.words);
        if (exitCode == 126)
            GTEST_SKIP() << "valgrind cannot be started";
        EXPECT_EQ(exitCode, each.exitCode) << command << test::readFile(world / "error");
        // Valgrind tells of what is left open, besides the standard streams.
        EXPECT_EQ(test::readFile(world / "error").find("Open file descriptor"), std::string::npos)
            << command << test::readFile(world / "error");
    }
}

TEST(Leaks, AreNoticedWhereAProgramEndsWithoutExit) {
    if (::dlsym(RTLD_DEFAULT, "__lsan_do_recoverable_leak_check") == nullptr)
        GTEST_SKIP() << "not built with the address sanitizer";
    const test::FaultyOutcome outcome =
        test::runWithFault({.arguments = {TARNWELL_FAULTS_SUBJECT, "leak"}, .environment = {}}, std::nullopt);
    EXPECT_EQ(outcome.exitCode, test::sanitizerCode) << outcome.error;
}

} // namespace
} // namespace tarnwell
