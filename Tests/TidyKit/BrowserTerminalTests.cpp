#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/TidyKit/PseudoTerminal.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

using namespace std::chrono_literals;
using tarnwell::test::PseudoTerminal;
using tarnwell::test::TemporaryFolder;

namespace {

std::string outputOf(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r"); // NOLINT: words of the test's own
    std::array<char, 4096> buffer;
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe))
        output.append(buffer.data(), count);
    ::pclose(pipe);
    return output;
}

/// A shell in a terminal of its own, by tmux.
class Shell {
public:
    explicit Shell(const std::string& home) : socket_("-S '" + home + "/tmux'"), home_(home) {
        tmux("-f /dev/null new-session -d -x 80 -y 24 'env -i HOME=" + home +
             " PATH=/usr/bin:/bin TERM=screen-256color LANG=C.UTF-8 XDG_CONFIG_HOME=" + home +
             "/config PS1=PROMPT: sh -i'");
    }
    ~Shell() { tmux("kill-server"); }
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    std::string tmux(const std::string& words) const {
        return outputOf("env -u TMUX tmux " + socket_ + " " + words);
    }
    void type(const std::string& keys) const { tmux("send-keys " + keys); }
    void enter(const std::string& line) const {
        tmux("send-keys -l \"" + line + "\"");
        type("Enter");
    }
    std::string screen() const { return tmux("capture-pane -p"); }
    bool shows(const std::string& text, bool isShown = true) const {
        for (int attempt = 0; attempt < 200; ++attempt) {
            if ((screen().find(text) != std::string::npos) == isShown)
                return true;
            std::this_thread::sleep_for(50ms);
        }
        return false;
    }
    /// The modes of its terminal, when it waits for a line.
    std::string modes() {
        const std::string file = home_ + "/modes" + std::to_string(++count_);
        // Not by what the screen shows: a line that is typed before its prompt stands elsewhere.
        enter("stty -g > " + file + ".part; mv " + file + ".part " + file);
        std::string text;
        for (int attempt = 0; attempt < 200 && text.empty(); ++attempt) {
            std::this_thread::sleep_for(50ms);
            if (std::filesystem::exists(file))
                text = outputOf("cat " + file);
        }
        EXPECT_FALSE(text.empty()) << screen();
        return text;
    }

private:
    std::string socket_;
    std::string home_;
    int count_ = 0;
};

class BrowserInATerminal : public testing::Test {
protected:
    void SetUp() override {
        if (outputOf("tmux -V").find("tmux ") != 0)
            GTEST_SKIP() << "tmux is not installed";
        home_.makeFile("tree/large folder/first", 3'000'000);
        home_.makeFile("tree/small folder/second", 1'000'000);
        home_.makeFile("tree/\x1B[31mred\xFF", 500'000);
        // Where the build lies, a path may have blanks, and several shells take the line apart.
        std::filesystem::create_symlink(TARNWELL_TIDY, home_ / "tidy");
        start_ = (home_ / "tidy").string() + " " + (home_ / "tree").string();
    }
    TemporaryFolder home_;
    std::string start_;
};

} // namespace

TEST_F(BrowserInATerminal, MovesResizesStopsAndLeavesTheShellAsItWas) {
    Shell shell(home_.path().string());
    const std::string before = shell.modes();
    shell.enter(start_);
    ASSERT_TRUE(shell.shows("large folder")) << shell.screen();
    EXPECT_TRUE(shell.shows("\\x1B[31mred\\xFF")) << shell.screen();
    shell.type("Enter");
    EXPECT_TRUE(shell.shows("first")) << shell.screen();
    shell.type("BSpace");
    EXPECT_TRUE(shell.shows("small folder")) << shell.screen();
    shell.type("/ l a r");
    EXPECT_TRUE(shell.shows("small folder", false)) << shell.screen();
    shell.type("C-c");
    EXPECT_TRUE(shell.shows("small folder")) << "the prompt alone is left: " << shell.screen();
    for (const char* size : {"-x 40 -y 10", "-x 200 -y 60", "-x 12 -y 3", "-x 80 -y 24"}) {
        shell.tmux("resize-window " + std::string(size));
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_TRUE(shell.shows("small folder")) << shell.screen();
    shell.type("C-z");
    ASSERT_TRUE(shell.shows("PROMPT:")) << shell.screen();
    EXPECT_TRUE(shell.shows("small folder", false)) << "the page from before: " << shell.screen();
    EXPECT_EQ(shell.modes(), before);
    shell.enter("fg");
    EXPECT_TRUE(shell.shows("small folder")) << shell.screen();
    shell.type("b");
    ASSERT_TRUE(shell.shows("small folder", false)) << shell.screen();
    shell.enter("echo in \\$PWD; exit");
    EXPECT_TRUE(shell.shows("small folder")) << shell.screen();
    shell.type("q");
    ASSERT_TRUE(shell.shows("PROMPT:")) << shell.screen();
    EXPECT_EQ(shell.modes(), before);
    shell.enter("echo status \\$?");
    EXPECT_TRUE(shell.shows("status 0")) << shell.screen();
}

TEST_F(BrowserInATerminal, SignalsEndItAndLeaveTheShellAsItWas) {
    Shell shell(home_.path().string());
    const std::string before = shell.modes();
    for (const auto& [signal, status] : {std::pair("TERM", "143"), {"HUP", "129"}, {"INT", "130"}}) {
        shell.enter("clear");
        const std::string file = (home_ / "process").string();
        shell.enter("sh -c 'echo \\$\\$ > " + file + "; exec " + start_ + "'; echo status \\$?");
        ASSERT_TRUE(shell.shows("large folder")) << shell.screen();
        // What a library complains about does not tear the picture, and is not lost.
        const bool hasDescriptors = std::filesystem::exists("/proc/self/fd/2");
        if (hasDescriptors) {
            outputOf("echo complaint of a library >> /proc/$(cat " + file + ")/fd/2");
            shell.type("i");
            EXPECT_TRUE(shell.shows("On disk")) << shell.screen();
            EXPECT_TRUE(shell.shows("complaint", false)) << shell.screen();
        }
        outputOf("kill -" + std::string(signal) + " $(cat " + file + ")");
        EXPECT_TRUE(!hasDescriptors || shell.shows("complaint of a library")) << shell.screen();
        EXPECT_TRUE(shell.shows("status " + std::string(status))) << shell.screen();
        EXPECT_EQ(shell.modes(), before);
    }
}

TEST_F(BrowserInATerminal, EndsWithItsTerminal) {
    PseudoTerminal terminal(
        {.environment = {"HOME=" + home_.path().string(), "XDG_CONFIG_HOME=" + (home_ / "config").string()}},
        {TARNWELL_TIDY, (home_ / "tree").string()});
    ASSERT_TRUE(terminal.expect("large folder")) << terminal.everything();
    terminal.hangUp();
    const int status = terminal.wait();
    EXPECT_TRUE(WIFEXITED(status)) << status;
}

TEST_F(BrowserInATerminal, NoKeyIsLostOnALineOf9600Baud) {
    for (int number = 0; number < 40; ++number)
        home_.makeFile("tree/name" + std::to_string(number), 100);
    PseudoTerminal terminal(
        {.environment = {"HOME=" + home_.path().string(), "XDG_CONFIG_HOME=" + (home_ / "config").string()}},
        {TARNWELL_TIDY, (home_ / "tree").string()});
    ASSERT_TRUE(terminal.expect("large folder")) << terminal.everything();
    std::string shown;
    // Sixty keys in a second and a half; each frame of a page takes about a second.
    const auto begin = std::chrono::steady_clock::now();
    for (int number = 0; number < 30; ++number) {
        terminal.type("\x1B[6~");
        shown += terminal.read(20ms, 24);
        terminal.type("\x1B[5~");
        shown += terminal.read(20ms, 24);
        std::this_thread::sleep_for(5ms);
    }
    terminal.type("q");
    while (shown.size() < 100'000) {
        const std::string piece = terminal.read(1000ms, 96);
        if (piece.empty())
            break;
        shown += piece;
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_LT(shown.size(), 12'000U) << "of sixty pages";
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15)) << "the last key was q";
    EXPECT_TRUE(WIFEXITED(terminal.wait()));
}
