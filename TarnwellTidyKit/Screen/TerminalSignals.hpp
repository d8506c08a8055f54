#pragma once

// Signals of a program that has a terminal to itself: those that ask for something become notes that are read
// in its loop; those that end it give the terminal back first.
//
// One at a time in a process. All handlers that were there are put back at the end.

#include <termios.h>

#include <array>
#include <csignal>
#include <optional>
#include <string>

namespace tarnwell {

class TerminalSignals {
public:
    /// Throws std::system_error.
    TerminalSignals();
    ~TerminalSignals();
    TerminalSignals(const TerminalSignals&) = delete;
    TerminalSignals& operator=(const TerminalSignals&) = delete;

    /// From now on, whoever ends the process by a crash, by SIGQUIT, or by a second SIGINT or SIGTERM writes
    /// `farewell` to the terminal and sets its modes before. Both are kept.
    void guard(int descriptor, const termios& modes, std::string farewell);
    /// The terminal has been given back: nothing is to be done.
    void unguard() noexcept;
    /// Called right after a guarded terminal was given back so, in a handler: it does what is safe there.
    /// Null for nothing.
    static void setLastWords(void (*lastWords)()) noexcept;

    /// Readable when there is a note. Safe from any thread and from handlers.
    int descriptor() const { return readEnd_; }
    void wake() noexcept;

    /// Empties the descriptor. Then each note is given once.
    void look() noexcept;
    static bool takeWake() noexcept;
    static bool takeResize() noexcept;
    static bool takeSuspend() noexcept;
    static bool takeContinue() noexcept;
    /// The first of SIGHUP, SIGINT and SIGTERM that came.
    static std::optional<int> takeQuit() noexcept;
    /// The next of them counts as the first, unless there has come another meanwhile.
    static void forgetQuit() noexcept;

    /// Stops the process as the shell expects it; returns when it is continued.
    static void stop() noexcept;

    /// While one exists, Ctrl-C and Ctrl-Z are for the program in front. Programs that are started find them
    /// as usual.
    class Aside {
    public:
        Aside() noexcept;
        ~Aside();
        Aside(const Aside&) = delete;
        Aside& operator=(const Aside&) = delete;

    private:
        std::array<struct sigaction, 3> before_ = {};
    };

private:
    int readEnd_ = -1;
};

/// Gives the terminal back as `TerminalSignals::guard` was told, if one has it. For a thread or handler that
/// ends the process at once; safe in handlers.
void giveTerminalBackNow() noexcept;

} // namespace tarnwell
