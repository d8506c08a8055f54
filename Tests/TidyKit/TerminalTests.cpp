#include "TarnwellTidyKit/Screen/CursesScreen.hpp"

#include "Tests/TidyKit/PseudoTerminal.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <thread>

using namespace tarnwell;
using namespace std::chrono_literals;
using test::PseudoTerminal;

namespace {

std::string told(const Event& event) {
    if (const auto* key = std::get_if<KeyPress>(&event))
        return key->key == Key::character ? "[" + key->text + "]"
                                          : "[key " + std::to_string(int(key->key)) + "]";
    if (const auto* mouse = std::get_if<MouseEvent>(&event))
        return "[mouse " + std::to_string(mouse->column) + " " + std::to_string(mouse->row) + "]";
    if (const auto* pasted = std::get_if<Pasted>(&event))
        return "[paste " + pasted->text + "]";
    if (const auto* resized = std::get_if<Resized>(&event))
        return "[size " + std::to_string(resized->width) + " " + std::to_string(resized->height) + "]";
    if (const auto* quit = std::get_if<QuitRequest>(&event))
        return "[quit " + std::to_string(quit->signal) + "]";
    if (std::holds_alternative<Woken>(event))
        return "[woken]";
    return std::holds_alternative<ScreenLost>(event) ? "[lost]" : "";
}

/// A program with a screen that writes what it is told into its rows, until "q".
int echo(CursesScreen::Options options = {}) {
    CursesScreen screen(options);
    int row = 0;
    std::string all;
    for (bool isFirst = true;; isFirst = false) {
        const Event event = isFirst ? Event(Tick()) : screen.next();
        all += told(event);
        const auto* key = std::get_if<KeyPress>(&event);
        if (std::holds_alternative<ScreenLost>(event))
            return 9;
        if (const auto* quit = std::get_if<QuitRequest>(&event))
            return 128 + quit->signal;
        if (key != nullptr && key->text == "q")
            return 0;
        if (key != nullptr && key->text == "S")
            screen.withTerminal([] { std::system("echo in the shell"); });
        if (key != nullptr && key->text == "C")
            screen.copyToClipboard("path");
        if (key != nullptr && key->text == "X")
            std::raise(SIGSEGV);                                          // NOLINT(cert-err33-c)
        for (; key != nullptr && key->text == "L" && row < 1000; ++row) { // many frames
            Grid grid(screen.size());
            for (int line = 0; line < grid.size().height; ++line)
                grid.put(0, line, "frame " + std::to_string(row) + " line " + std::to_string(line));
            screen.show(grid);
            all += told(screen.next(1ms));
        }
        Grid grid(screen.size());
        grid.put(0, 0, "rows 日本 e\u0301 \x1B[31m \xFF", {Role::heading});
        grid.bar(0, 1, 10, 0.5, {Role::bar}, {Role::text, Role::barTrack});
        grid.put(0, 2, all.size() > 60 ? all.substr(all.size() - 60) : all, Style{Role::danger}.bold());
        grid.put(0, 3, "chosen", Style().selected());
        screen.show(grid, GridPoint{3, 4});
    }
}

bool isAsFound(const PseudoTerminal& terminal) {
    const termios now = terminal.modes();
    const termios& before = terminal.modesBefore();
    return now.c_iflag == before.c_iflag && now.c_oflag == before.c_oflag && now.c_lflag == before.c_lflag &&
           now.c_cflag == before.c_cflag && std::memcmp(now.c_cc, before.c_cc, sizeof now.c_cc) == 0;
}

/// What switches modes on was switched off last.
bool hasNoResidue(const std::string& sent) {
    for (const std::string mode : {"?1049", "?2004", "?1000", "?1002", "?1006"})
        if (sent.rfind("\x1B[" + mode + "h") > sent.rfind("\x1B[" + mode + "l") ||
            sent.find("\x1B[" + mode + "l") == std::string::npos)
            return false;
    return sent.rfind("\x1B[?25l") == std::string::npos ||
           sent.rfind("\x1B[?25l") < sent.rfind("\x1B[?25h") ||
           sent.rfind("\x1B[?25l") < sent.rfind("\x1B[?12l\x1B[?25h");
}

} // namespace

TEST(Terminal, EventsArriveAndNothingOfANameCommandsTheTerminal) {
    PseudoTerminal terminal({.ground = "rgb:ffff/ffff/ffff"}, [] { return echo(); });
    ASSERT_TRUE(terminal.expect("rows 日本 e\u0301 \\x1B[31m \\xFF")) << terminal.everything();
    terminal.type("a\x1B[B\x1B[<0;5;7M\x1B[200~x\r\ny\x1B[201~ß");
    EXPECT_TRUE(terminal.expect("ß]")) << terminal.everything();
    EXPECT_NE(terminal.everything().find("[paste x\\ny]"), std::string::npos) << terminal.everything();
    EXPECT_NE(terminal.everything().find("[mouse 4 6]"), std::string::npos);
    terminal.type("\x1B");
    EXPECT_TRUE(terminal.expect("[key 8]")) << "a single Escape";
    terminal.resize(60, 10);
    EXPECT_TRUE(terminal.expect("[size 60 10]"));
    terminal.type("C");
    EXPECT_TRUE(terminal.expect("\x1B]52;c;cGF0aA==\x1B\\"));
    terminal.type("S");
    EXPECT_TRUE(terminal.expect("in the shell"));
    EXPECT_TRUE(terminal.expect("rows 日本"));
    terminal.type("q");
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_TRUE(isAsFound(terminal));
    EXPECT_TRUE(hasNoResidue(terminal.everything()));
}

TEST(Terminal, IsLeftAsItWasFoundHoweverTheProgramEnds) {
    struct Case {
        const char* name;
        std::function<void(PseudoTerminal&)> end;
        std::function<bool(int)> isExpected;
    };
    const auto exits = [](int code) {
        return [code](int status) { return WIFEXITED(status) && WEXITSTATUS(status) == code; };
    };
    const auto diesOf = [](int signal) {
        return [signal](int status) { return WIFSIGNALED(status) && WTERMSIG(status) == signal; };
    };
    const std::vector<Case> cases = {
        {"SIGTERM", [](auto& terminal) { terminal.signal(SIGTERM); }, exits(128 + SIGTERM)},
        {"SIGHUP", [](auto& terminal) { terminal.signal(SIGHUP); }, exits(128 + SIGHUP)},
        {"Ctrl-C", [](auto& terminal) { terminal.type("\x03"); }, exits(128 + SIGINT)},
        {"crash", [](auto& terminal) { terminal.type("X"); }, diesOf(SIGSEGV)},
        {"SIGABRT", [](auto& terminal) { terminal.signal(SIGABRT); }, diesOf(SIGABRT)},
        {"SIGQUIT", [](auto& terminal) { terminal.signal(SIGQUIT); }, diesOf(SIGQUIT)},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        PseudoTerminal terminal({}, [] {
            const rlimit none = {};
            ::setrlimit(RLIMIT_CORE, &none);
            return echo();
        });
        ASSERT_TRUE(terminal.expect("rows"));
        EXPECT_FALSE(isAsFound(terminal));
        one.end(terminal);
        EXPECT_TRUE(one.isExpected(terminal.wait()));
        terminal.read(50ms);
        EXPECT_TRUE(isAsFound(terminal));
        EXPECT_TRUE(hasNoResidue(terminal.everything())) << terminal.everything();
    }
}

TEST(Terminal, ThatGoesAwayIsTold) {
    PseudoTerminal terminal({}, [] {
        std::signal(SIGHUP, SIG_IGN);
        return echo();
    });
    ASSERT_TRUE(terminal.expect("rows"));
    terminal.hangUp();
    EXPECT_EQ(WEXITSTATUS(terminal.wait()), 9);
}

TEST(Terminal, IsGivenBackWhileTheProgramIsStopped) {
    // Only a shell's child can be stopped by the terminal, so the child is one's child.
    PseudoTerminal terminal({}, [] {
        const pid_t program = ::fork();
        if (program == 0) {
            ::setpgid(0, 0);
            ::_exit(echo());
        }
        ::setpgid(program, program);
        std::signal(SIGTTOU, SIG_IGN);
        ::tcsetpgrp(0, program);
        int status = 0;
        ::waitpid(program, &status, WUNTRACED);
        ::tcsetpgrp(0, ::getpgrp());
        const bool isStopped = WIFSTOPPED(status);
        ::write(1, "stopped\n", 8);
        char byte = 0;
        ::read(0, &byte, 1);
        ::tcsetpgrp(0, program);
        ::kill(program, SIGCONT);
        ::waitpid(program, &status, 0);
        return isStopped ? WEXITSTATUS(status) : 77;
    });
    ASSERT_TRUE(terminal.expect("rows"));
    terminal.type("\x1A");
    ASSERT_TRUE(terminal.expect("stopped"));
    EXPECT_TRUE(isAsFound(terminal));
    EXPECT_TRUE(hasNoResidue(terminal.everything()));
    terminal.type("\n");
    EXPECT_TRUE(terminal.expect("rows"));
    EXPECT_FALSE(isAsFound(terminal));
    terminal.type("q");
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_TRUE(isAsFound(terminal));
}

TEST(Terminal, FramesForASlowLineAreDroppedAndKeysAreNot) {
    // 960 bytes in a second is a line of 9,600 baud; here, ten times that, so that nobody has to wait.
    PseudoTerminal terminal({.width = 100, .height = 30}, [] { return echo(); });
    ASSERT_TRUE(terminal.expect("rows"));
    terminal.type("Labc");
    std::string shown;
    int pieces = 0;
    for (; pieces < 600 && shown.find("[L][a][b][c]") == std::string::npos; ++pieces) {
        shown += terminal.read(10ms, 96);
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_LT(pieces, 600);
    EXPECT_GT(shown.size(), 3'000U);
    EXPECT_LT(shown.size(), 60'000U) << "of a megabyte of frames";
    terminal.type("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST(Terminal, IsNotWaitedForWhenItSaysNothing) {
    const auto begin = std::chrono::steady_clock::now();
    PseudoTerminal terminal({.answers = false}, [] { return echo(); });
    ASSERT_TRUE(terminal.expect("rows"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(terminal.everything().find("\x1B[5n"), std::string::npos);
    terminal.type("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST(Terminal, DrawsWithWhatThereIs) {
    struct Case {
        const char* name;
        PseudoTerminal::Options options;
        CursesScreen::Options screen;
        std::string_view shows;
        std::string_view never;
    };
    const std::vector<Case> cases = {
        {"without colours", {}, {.hasColours = false}, ";7m", "\x1B[38"},
        {"a terminal without colours", {.type = "vt100"}, {}, "rows", "\x1B[3"},
        {"eight colours", {.type = "xterm"}, {}, "\x1B[3", "38;5"},
        {"dark", {.ground = "rgb:0000/0000/0000"}, {}, "38;5;152", "38;5;238"},
        {"light", {.ground = "rgb:ffff/ffff/ffff"}, {}, "38;5;238", "38;5;152"},
        {"every colour",
         {.ground = "rgb:0000/0000/0000", .environment = {"COLORTERM=truecolor"}},
         {},
         "38;2;184;196;214m",
         "8;5;"},
        {"light, by setting",
         {.ground = "rgb:0000/0000/0000"},
         {.ground = CursesScreen::Ground::light},
         "38;5;238",
         "11;?"},
        {"ASCII", {.environment = {"LANG=C"}}, {}, "rows ????", "\xE6"},
        {"UTF-8 of a language that is not here", {.environment = {"LANG=xx_YY.UTF-8"}}, {}, "日本", "??"},
        {"a new relative", {.type = "xterm-nobodyknows"}, {}, "rows 日本", "??"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        PseudoTerminal terminal(one.options, [&] { return echo(one.screen); });
        EXPECT_TRUE(terminal.expect("rows")) << terminal.everything();
        terminal.read(30ms);
        EXPECT_NE(terminal.everything().find(one.shows), std::string::npos) << terminal.everything();
        EXPECT_EQ(terminal.everything().find(one.never), std::string::npos) << terminal.everything();
        terminal.type("q");
        EXPECT_EQ(terminal.wait(), 0);
        EXPECT_TRUE(isAsFound(terminal));
    }
    PseudoTerminal unknown({.type = "nobody-knows-this"}, [] {
        try {
            return echo();
        } catch (const std::runtime_error&) {
            return 5;
        }
    });
    EXPECT_EQ(WEXITSTATUS(unknown.wait()), 5);
    EXPECT_TRUE(isAsFound(unknown));
}

TEST(Terminal, OtherThreadsWakeALoopThatUsesNoProcessor) {
    PseudoTerminal terminal({}, [] {
        CursesScreen screen({});
        std::atomic<bool> isAwake = false;
        std::thread waker([&] {
            std::this_thread::sleep_for(300ms);
            isAwake = true;
            for (int time = 0; time < 100'000; ++time)
                screen.wake();
        });
        rusage before = {};
        ::getrusage(RUSAGE_SELF, &before);
        if (!std::holds_alternative<Woken>(screen.next()) || !isAwake)
            return 1;
        rusage after = {};
        ::getrusage(RUSAGE_THREAD, &after);
        waker.join();
        return after.ru_nvcsw < 200 ? 0 : 2;
    });
    EXPECT_EQ(terminal.wait(), 0);
}
