#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <thread>

namespace tarnwell {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr double infinity = std::numeric_limits<double>::infinity();

std::optional<CommandResult> runScript(const std::string& script, double timeout = 60, double grace = 60) {
    return Shell::runAsync("/bin/sh", {"-c", script}, timeout, grace).get();
}

double secondsOf(const std::function<void()>& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return Seconds(std::chrono::steady_clock::now() - start).count();
}

bool waitUntil(const std::function<bool()>& holds, double limit = 20) {
    const auto end = std::chrono::steady_clock::now() + Seconds(limit);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

/// A tool that ignores the request to end, and says so with a file "ready" in this folder. Once there is one
/// named "go" it writes so many bytes, then the file "finished". It ends with the folder, too.
std::string stubbornScript(const std::string& folder, int count) {
    return "trap '' TERM; cd '" + folder +
           "' && echo x >ready || exit; while [ -e ready ] && [ ! -e go ]; do " +
           "sleep 0.05; done; head -c " + std::to_string(count) + " /dev/zero && echo x >finished";
}

int openDescriptorCount() {
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor)
        count += ::fcntl(descriptor, F_GETFD) != -1;
    return count;
}

/// Whether this process has a child, running or waiting to be reaped.
bool hasChildren() {
    siginfo_t information = {};
    return ::waitid(P_ALL, 0, &information, WEXITED | WNOHANG | WNOWAIT) == 0;
}

TEST(Shell, WhatCannotBeStartedGivesNothing) {
    const test::TemporaryFolder folder;
    const std::string plain = folder.writeFile("plain", "#!/bin/sh\n");
    // The system cannot execute it, and no shell is asked to try.
    const std::string noProgram = folder.writeFile("no program", "echo hello\n");
    std::filesystem::permissions(noProgram, std::filesystem::perms::owner_all);
    const std::string cases[] = {"",        "/nonexistent/tool", plain,
                                 noProgram, folder.path(),       std::string("/bin/sh\0x", 9)};
    for (const std::string& executable : cases) {
        EXPECT_EQ(Shell::run(executable, {}, 5), std::nullopt) << executable;
        EXPECT_EQ(Shell::runAsync(executable, {}, 5, 1).get(), std::nullopt) << executable;
    }
    EXPECT_EQ(Shell::run("/bin/sh", {"-c", std::string("true\0 false", 11)}, 5), std::nullopt);
}

TEST(Shell, ResultHoldsExitCodeAndBothTexts) {
    const std::string mark = "\xEF\xBF\xBD";
    const struct {
        std::vector<std::string> arguments;
        CommandResult expected;
    } cases[] = {
        {{"-c", "echo out; echo err >&2; exit 3"}, {3, "out\n", "err\n"}},
        {{"-c", ":"}, {0, "", ""}},
        {{"-c", "cat; echo end"}, {0, "end\n", ""}},
        {{"-c", "printf '%s|' \"$@\"", "sh", "", "a  b", "*", "$HOME", "'\"\n"},
         {0, "|a  b|*|$HOME|'\"\n|", ""}},
        {{"-c", "printf 'a\\377b'; printf '\\303' >&2"}, {0, "a" + mark + "b", mark}},
        {{"-c", "kill -TERM $$"}, {SIGTERM, "", ""}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Shell::run("/bin/sh", each.arguments, 5), each.expected) << each.arguments[1];
        EXPECT_EQ(Shell::runAsync("/bin/sh", each.arguments, 60, 5).get(), each.expected)
            << each.arguments[1];
    }
    EXPECT_TRUE((CommandResult{0, "", "warning"}.succeeded()));
    EXPECT_FALSE((CommandResult{Shell::timedOutExitCode, "", ""}.succeeded()));
}

TEST(Shell, MegabytesOnBothStreamsComeBackWhole) {
    const std::vector<std::string> arguments = {
        "-c", "for part in 1 2 3 4; do head -c 2000000 /dev/zero | tr '\\0' e >&2; "
              "head -c 1000000 /dev/zero | tr '\\0' o; done"};
    for (const auto& result :
         {Shell::run("/bin/sh", arguments, 60), Shell::runAsync("/bin/sh", arguments, 60, 5).get()}) {
        ASSERT_TRUE(result);
        EXPECT_EQ(result->exitCode, 0);
        EXPECT_TRUE(result->standardOutput == std::string(4'000'000, 'o')) << result->standardOutput.size();
        EXPECT_TRUE(result->standardError == std::string(8'000'000, 'e')) << result->standardError.size();
    }
}

TEST(Shell, ToolThatWritesWithoutEndIsHeldUp) {
    const test::TemporaryFolder folder;
    const std::string write =
        "head -c 100000000 /dev/zero >&2 && echo x >'" + (folder / "written").native() + "'";
    const CommandResult timedOut{Shell::timedOutExitCode, "", "timed out after 1.0s"};
    EXPECT_EQ(runScript(write, 1, 20), timedOut);
    EXPECT_EQ(Shell::run("/bin/sh", {"-c", write}, 1), timedOut);
    EXPECT_FALSE(std::filesystem::exists(folder / "written"));
    // Left to itself it is held up no longer.
    EXPECT_EQ(runScript("trap '' TERM; " + write, 1, 0), timedOut);
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(folder / "written"); }));

    // What is in the pipe when it ends is its answer, too.
    const auto whole = runScript("head -c 67150000 /dev/zero; exit 5");
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->exitCode, 5);
    EXPECT_EQ(whole->standardOutput.size(), 67'150'000u);
}

TEST(Shell, ToolThatRunsTooLongIsAskedToTerminate) {
    std::optional<CommandResult> result;
    const double seconds =
        secondsOf([&] { result = runScript("echo partial; exec sleep 30", 0.25, infinity); });
    EXPECT_EQ(result, (CommandResult{Shell::timedOutExitCode, "", "timed out after 0.25s"}));
    EXPECT_GE(seconds, 0.25);
    EXPECT_LT(seconds, 20);

    // Also when it ends in order, and with success.
    result = runScript("trap 'exit 0' TERM; sleep 30 & wait", 1, 20);
    EXPECT_EQ(result, (CommandResult{Shell::timedOutExitCode, "", "timed out after 1.0s"}));
    EXPECT_FALSE(hasChildren());
}

TEST(Shell, ToolThatIgnoresTerminationIsLeftAndReapedLater) {
    // On a busy machine a tool may be asked before it ignores the request: then it gets more time.
    for (double timeout = 0.1; !HasFailure(); timeout *= 2) {
        const test::TemporaryFolder folder;
        // More than a pipe holds is written after the caller has gone.
        const std::string script = stubbornScript(folder.path(), 300'000);
        std::optional<CommandResult> result;
        const double seconds = secondsOf([&] { result = runScript(script, timeout, 0.2); });
        EXPECT_EQ(result, (CommandResult{Shell::timedOutExitCode, "",
                                         "timed out after " + decimalText(timeout) + "s"}));
        EXPECT_GE(seconds, timeout);
        if (!std::filesystem::exists(folder / "ready"))
            continue;
        EXPECT_GE(seconds, timeout + 0.2);
        EXPECT_TRUE(hasChildren());
        folder.writeFile("go", "");
        EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(folder / "finished"); }));
        break;
    }
    EXPECT_TRUE(waitUntil([] { return !hasChildren(); }));
}

#ifdef __linux__
// Starts threads in a forked child, which wants a parent without any: suites of this name run first.
TEST(ShellDeathTest, ToolIsLeftUndisturbedWhereThereIsNoThreadToEmptyItsPipes) {
    const test::TemporaryFolder folder;
    std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
    const std::string answer = test::runUnprivileged([&]() -> std::string {
        for (double timeout = 0.4;; timeout *= 2) {
            const std::filesystem::path round = folder / decimalText(timeout);
            std::filesystem::create_directory(round);
            auto result = Shell::runAsync("/bin/sh", {"-c", stubbornScript(round, 100)}, timeout, 0);
            if (!waitUntil([&] { return std::filesystem::exists(round / "ready"); }, timeout / 2)) {
                if (timeout > 20)
                    return "never ready";
                std::error_code ignored;
                std::filesystem::remove_all(round, ignored); // which ends a tool that came late
                continue;
            }
            const rlimit none = {0, 0};
            if (::setrlimit(RLIMIT_NPROC, &none) != 0)
                return "no limits here";
            const auto answered = result.get();
            if (!answered || answered->exitCode != Shell::timedOutExitCode)
                return "not timed out";
            std::ofstream(round / "go").close();
            return waitUntil([&] { return std::filesystem::exists(round / "finished"); }, 10) ? "finished"
                                                                                              : "disturbed";
        }
    });
    EXPECT_EQ(answer, "finished");
}
#endif

TEST(Shell, ToolLeftBehindDoesNotDisturbTheEndOfTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const auto result = runScript("trap '' TERM; sleep 1", 0.1, 0);
            std::exit(result && result->exitCode == Shell::timedOutExitCode ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(Shell, UnusualDurations) {
    const std::string timedOut = "timed out after ";
    const struct {
        double timeout;
        double grace;
        const char* script;
        CommandResult expected;
    } cases[] = {
        {std::nan(""), std::nan(""), "echo ok", {0, "ok\n", ""}},
        {infinity, 1, "echo ok", {0, "ok\n", ""}},
        {1e300, -1, "echo ok", {0, "ok\n", ""}},
        {0, 20, "exec sleep 30", {-9, "", timedOut + "0.0s"}},
        {-infinity, 1e300, "exec sleep 30", {-9, "", timedOut + "-infs"}},
        {-2.5, std::nan(""), "exec sleep 30", {-9, "", timedOut + "-2.5s"}},
        {1e-300, -1, "exec sleep 30", {-9, "", timedOut + "1e-300s"}},
    };
    for (const auto& each : cases)
        EXPECT_EQ(runScript(each.script, each.timeout, each.grace), each.expected) << each.timeout;
    EXPECT_TRUE(waitUntil([] { return !hasChildren(); }));
}

TEST(Shell, BackgroundProcessesAreNotWaitedFor) {
    std::optional<CommandResult> result;
    const double seconds = secondsOf([&] { result = runScript("sleep 30 & echo $!; exit 4", infinity); });
    ASSERT_TRUE(result);
    EXPECT_LT(seconds, 20);
    EXPECT_EQ(result->exitCode, 4);
    EXPECT_EQ(::kill(std::stoi(result->standardOutput), SIGKILL), 0);
}

TEST(Shell, ManyRunsAtOnceLeaveNothingBehind) {
    const int before = openDescriptorCount();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([thread] {
            for (int round = 0; round < 60; ++round) {
                const std::string word = std::to_string(thread) + "-" + std::to_string(round);
                auto later = Shell::runAsync("/bin/sh", {"-c", "sleep 0.01; echo " + word}, 60, 5);
                EXPECT_EQ(Shell::run("/bin/sh", {"-c", "cat; echo " + word + " >&2; exit 7"}, 5),
                          (CommandResult{7, "", word + "\n"}));
                EXPECT_EQ(later.get(), (CommandResult{0, word + "\n", ""}));
                if (round == 5) {
                    EXPECT_EQ(runScript("exec sleep 30", 0.05)->exitCode, Shell::timedOutExitCode);
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    // Those of tools that earlier tests left behind may have been closed meanwhile.
    EXPECT_LE(openDescriptorCount(), before);
    EXPECT_FALSE(hasChildren());
}

TEST(Shell, ToolInheritsNoDescriptors) {
    // Opened by a part of the host that does not think of programs, one of them far up.
    const int low = ::open("/dev/null", O_RDONLY);
    const int high = ::fcntl(low, F_DUPFD, 700);
    ASSERT_GE(high, 700);
    const auto listed = runScript("ls /dev/fd | wc -l; ls /dev/fd/");
    ASSERT_TRUE(listed);
    // 0, 1, 2 and the one that ls reads the folder with.
    EXPECT_LE(std::stoi(listed->standardOutput), 4) << listed->standardOutput;
    ::close(low);
    ::close(high);
}

#ifdef __linux__ // elsewhere the system's own task object sees to these
TEST(Shell, ToolStartsWithDefaultSignalHandling) {
    struct sigaction ignored = {};
    struct sigaction previous = {};
    ignored.sa_handler = SIG_IGN;
    ASSERT_EQ(::sigaction(SIGPIPE, &ignored, &previous), 0);
    sigset_t blocked;
    sigset_t previousMask;
    sigfillset(&blocked);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &previousMask), 0);
    const auto piped = Shell::run("/bin/sh", {"-c", "kill -PIPE $$; echo ignored"}, 5);
    const auto slept = runScript("exec sleep 30", 0.1, 20);
    ::pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    ::sigaction(SIGPIPE, &previous, nullptr);
    EXPECT_EQ(piped, (CommandResult{SIGPIPE, "", ""}));
    EXPECT_EQ(slept, (CommandResult{Shell::timedOutExitCode, "", "timed out after 0.1s"}));
    EXPECT_FALSE(hasChildren());
}

TEST(Shell, HostWithoutStandardStreams) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            for (const int descriptor : {0, 1, 2})
                ::close(descriptor);
            const auto result = runScript("cat; echo out; echo err >&2; exit 5");
            ::_exit(result == CommandResult{5, "out\n", "err\n"} ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
#endif

} // namespace
} // namespace tarnwell
