// The program as its users meet it: a process with streams, signals and an exit code.

#include "Tests/TidyKit/Scene.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/fanotify.h>
#endif

#include <chrono>
#include <thread>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::ProgramRun;
using test::runProgram;
using test::TemporaryFolder;
using test::Words;
using testing::HasSubstr;

using Clock = std::chrono::steady_clock;

/// The program on a terminal of its own.
class OnTerminal {
public:
    OnTerminal(const fs::path& home, const Words& words) {
        terminal_ = ::posix_openpt(O_RDWR | O_NOCTTY);
        ::grantpt(terminal_);
        ::unlockpt(terminal_);
        const winsize size = {.ws_row = 24, .ws_col = 70, .ws_xpixel = 0, .ws_ypixel = 0};
        ::ioctl(terminal_, TIOCSWINSZ, &size);
        const std::string name = ::ptsname(terminal_);
        std::vector<char*> values{const_cast<char*>(TARNWELL_TIDY)};
        for (const std::string& word : words)
            values.push_back(const_cast<char*>(word.c_str()));
        values.push_back(nullptr);
        process_ = ::fork();
        if (process_ == 0) {
            ::setsid();
            const int own = ::open(name.c_str(), O_RDWR);
            ::ioctl(own, TIOCSCTTY, 0);
            for (int stream = 0; stream < 3; ++stream)
                ::dup2(own, stream);
            ::setenv("HOME", home.c_str(), 1);
            ::setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
            ::setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
            ::setenv("TERM", "xterm", 1);
            ::unsetenv("NO_COLOR");
            ::execv(TARNWELL_TIDY, values.data());
            ::_exit(126);
        }
    }
    ~OnTerminal() { ::close(terminal_); }

    void type(std::string_view text) {
        EXPECT_EQ(::write(terminal_, text.data(), text.size()), std::ssize(text));
    }

    /// Reads until the text has come, or for ten seconds.
    bool waitFor(std::string_view text) {
        const auto end = Clock::now() + std::chrono::seconds(10);
        while (seen.find(text) == std::string::npos && Clock::now() < end)
            if (!readSome())
                break;
        return seen.find(text) != std::string::npos;
    }

    /// The exit code, once it has ended; whatever it still says is in `seen`.
    int wait() {
        while (readSome()) {
        }
        int status = 0;
        ::waitpid(process_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    std::string seen;

private:
    bool readSome() {
        pollfd readable = {.fd = terminal_, .events = POLLIN, .revents = 0};
        if (::poll(&readable, 1, 10'000) != 1)
            return false;
        char bytes[4096];
        const ssize_t count = ::read(terminal_, bytes, sizeof bytes);
        if (count <= 0)
            return false;
        seen.append(bytes, static_cast<std::size_t>(count));
        return true;
    }

    int terminal_ = -1;
    pid_t process_ = -1;
};

TEST(Program, ArgumentsStreamsAndExitCodes) {
    const TemporaryFolder home;
    home.makeFile("file", 1'000);
    const ProgramRun help = runProgram(home.path(), {"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.output, HasSubstr("report FOLDER"));
    const ProgramRun nothing = runProgram(home.path(), {});
    EXPECT_EQ(nothing.exitCode, 2);
    EXPECT_EQ(nothing.error, help.output);
    EXPECT_THAT(runProgram(home.path(), {"--version"}).output, testing::StartsWith("tarnwell-tidy 0."));
    const ProgramRun report = runProgram(home.path(), {"report", home.path().string(), "--json"});
    EXPECT_EQ(report.error, "");
    EXPECT_EQ(test::readDocument(report.output)["fileCount"].GetInt64(), 1);
    EXPECT_EQ(runProgram(home.path(), {"report", "/missing"}).exitCode, 1);
}

TEST(Program, OutputThatCannotBeWrittenIsAnError) {
    const TemporaryFolder home;
#ifdef __linux__
    const ProgramRun full =
        runProgram(home.path(), {"volumes"}, [] { ::dup2(::open("/dev/full", O_WRONLY), 1); });
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_THAT(full.error, HasSubstr("The output could not be written: No space left on device."));
#endif
    for (int number = 0; number < 5'000; ++number) // a listing of several pieces
        home.makeFile(std::string(240, 'n') + std::to_string(number));
    for (const Words& words : {Words{"--help"}, Words{"find", home.path().string()}}) {
        const ProgramRun gone = runProgram(home.path(), words, [] {
            int ends[2];
            (void)!::pipe(ends);
            ::close(ends[0]);
            ::dup2(ends[1], 1);
        });
        EXPECT_EQ(gone.exitCode, 1);
        EXPECT_EQ(gone.error, "");
    }
}

TEST(Program, ATerminalIsAskedAndSeesColours) {
    const TemporaryFolder home;
    const fs::path file = home.makeFile("kept \033[2J", 10);
    {
        OnTerminal program(home.path(), {"trash", file.string()});
        EXPECT_TRUE(program.waitFor("Move 1 item to the Trash? [y/N] "));
        program.type("n\n");
        EXPECT_EQ(program.wait(), 1);
        EXPECT_THAT(program.seen, testing::Not(HasSubstr("\033[2J")));
        EXPECT_TRUE(fs::exists(file));
    }
    OnTerminal report(home.path(), {"report", home.path().string()});
    EXPECT_EQ(report.wait(), 0);
    EXPECT_THAT(report.seen, testing::AllOf(HasSubstr("\033[1m"), HasSubstr("kept \\x1B[2J")));
}

TEST(Program, ControlCEndsAtOnceAndLeavesNoLineBehind) {
    const TemporaryFolder home;
    OnTerminal program(home.path(), {"volumes", "--watch"});
    ASSERT_TRUE(program.waitFor("free"));
    const auto start = Clock::now();
    program.type("\003");
    EXPECT_EQ(program.wait(), 130);
    // Far above what is promised: the machine may be busy.
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
}

#ifdef __linux__
/// Opens of a folder wait in the kernel until this goes.
class HeldFolder {
public:
    explicit HeldFolder(const fs::path& folder) {
        group_ = ::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY);
        if (group_ >= 0)
            isHeld = ::fanotify_mark(group_, FAN_MARK_ADD, FAN_OPEN_PERM | FAN_ONDIR, AT_FDCWD,
                                     folder.c_str()) == 0;
    }
    ~HeldFolder() {
        if (group_ >= 0)
            ::close(group_);
    }
    bool isHeld = false;

private:
    int group_ = -1;
};

TEST(Program, AScanThatTheKernelHoldsUpEndsWithControlC) {
    const TemporaryFolder home;
    home.makeFile("tree/stuck/file", 10);
    const HeldFolder held(home / "tree/stuck");
    if (!held.isHeld)
        GTEST_SKIP() << "holding up a folder takes rights to watch file accesses";
    OnTerminal program(home.path(), {"report", home.path().string()});
    ASSERT_TRUE(program.waitFor("files/s")) << program.seen;
    const auto start = Clock::now();
    program.type("\003");
    EXPECT_EQ(program.wait(), 130);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    EXPECT_TRUE(program.seen.ends_with("\r\033[K")) << "the line is gone";
}
#endif

} // namespace
} // namespace tarnwell
