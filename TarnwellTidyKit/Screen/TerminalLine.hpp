#pragma once

// The line to a terminal: bytes there and back, without waiting for either, and the modes of the line, which
// are put back as they were found.

#include "TarnwellTidyKit/Screen/TerminalSignals.hpp"

#include <termios.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwell {

/// For one thread.
class TerminalLine {
public:
    /// Opens the terminal behind standard output anew, so that what is set for this descriptor (not to wait)
    /// is not set for others who have the terminal. Throws std::runtime_error when there is none.
    explicit TerminalLine(TerminalSignals& signals);
    /// Gives it back.
    ~TerminalLine();
    TerminalLine(const TerminalLine&) = delete;
    TerminalLine& operator=(const TerminalLine&) = delete;

    /// Sets the modes, so that each byte comes as it is typed, and sends `greeting`. `farewell` is sent at
    /// the end, whatever the end is. When the line is taken already, sets both again.
    void take(std::string_view greeting, std::string farewell);
    /// Sends the farewell, sets the modes that were found. What has not been sent is dropped.
    void giveBack() noexcept;
    bool isTaken() const { return isTaken_; }

    /// Sends what the line takes, keeps the rest.
    void send(std::string_view bytes);
    /// Whether there is a rest, or the line has bytes enough for now.
    bool isBusy();
    /// What has been typed; empty when nothing has.
    std::string receive();
    /// Throws away what has been typed and not been read.
    void forgetInput() noexcept;

    /// Returns when there is something to read, a note of the signals, or room for a rest; or after the time.
    void wait(std::optional<std::chrono::milliseconds> time);

    /// The other end is gone.
    bool isLost() const { return isLost_; }

    struct Size {
        int width = 80;
        int height = 24;
    };
    Size size() const;

private:
    void sendRest();

    TerminalSignals& signals_;
    int descriptor_ = -1;
    termios found_ = {};
    std::string farewell_;
    std::string rest_;
    bool isTaken_ = false;
    bool isLost_ = false;
};

} // namespace tarnwell
