#pragma once

// A terminal for a child, played by the test: it sees every byte and answers as it is told.

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell::test {

class PseudoTerminal {
public:
    struct Options {
        int width = 80;
        int height = 24;
        std::string type = "xterm-256color";
        /// Sent for each question about attributes and for each sign asked for.
        bool answers = true;
        /// Sent for the question about the ground.
        std::string ground = {};
        std::vector<std::string> environment = {};
    };

    /// Runs `child` in a process of its own that has this terminal; its result is the exit code.
    PseudoTerminal(const Options& options, const std::function<int()>& child);
    /// Runs a program.
    PseudoTerminal(const Options& options, const std::vector<std::string>& words);
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    void type(std::string_view bytes);
    void resize(int width, int height);
    void signal(int number);
    /// Takes the terminal away.
    void hangUp();
    /// Reads until what came contains `text`; false after some seconds. Removes all up to its end.
    bool expect(std::string_view text);
    /// Reads for a while, at most so many bytes.
    std::string read(std::chrono::milliseconds time, std::size_t most = std::size_t(-1));
    /// Everything that has ever come.
    const std::string& everything() const { return everything_; }
    termios modes() const;
    /// What was there before the child began.
    const termios& modesBefore() const { return before_; }
    /// The status of waitpid; -1 when the child has not ended within some seconds.
    int wait(bool untilStopped = false);
    pid_t child() const { return child_; }

private:
    void start(const Options& options, const std::function<int()>& child);
    void answer();

    Options options_;
    int master_ = -1;
    int slave_ = -1; // open, so that modes can be seen after the child's end
    pid_t child_ = -1;
    termios before_ = {};
    std::string everything_;
    std::string unseen_;
    std::size_t answered_ = 0; // of `everything_`
};

} // namespace tarnwell::test
