#pragma once

// A terminal of a test's own.

#include <string>

namespace tarnwell::test {

class Terminal {
public:
    /// Aborts where the system has none to give.
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// In a new process: makes this the terminal of its session, where Control-C ends it.
    void control() const;
    /// In a new process: makes a stream of it the terminal.
    void replace(int stream) const;

    /// In the process that looks on: the next bytes, with "\r\n" for each line feed, or nothing once no
    /// process holds the other side any more. Call when the new process is there: lets go of the other side.
    std::string read();
    std::string readToEnd();
    /// What somebody types.
    void type(const std::string& keys) const;

private:
    int screen_;
    int line_;
};

} // namespace tarnwell::test
