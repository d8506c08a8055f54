#include "TarnwellTidyKit/Screen/TerminalLine.hpp"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace tarnwell {

namespace {

/// What may lie in the system's buffer before another frame is drawn.
constexpr int fewBytes = 256;

int openTerminal() {
    constexpr int flags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
    const char* name = ::isatty(STDOUT_FILENO) == 1 ? ::ttyname(STDOUT_FILENO) : nullptr;
    // By its own name first: not all systems can wait for the general one. That one can be opened where the
    // terminal itself belongs to another user.
    for (const char* path : {name, "/dev/tty"}) {
        const int descriptor = path == nullptr ? -1 : ::open(path, flags);
        if (descriptor >= 0 && descriptor < FD_SETSIZE && ::isatty(descriptor) == 1)
            return descriptor;
        if (descriptor >= 0)
            ::close(descriptor);
    }
    throw std::runtime_error("There is no terminal to draw on.");
}

int fromEnvironment(const char* name, int otherwise) {
    const char* value = std::getenv(name);
    int number = 0;
    if (value != nullptr)
        std::from_chars(value, value + std::string_view(value).size(), number);
    return number > 0 ? number : otherwise;
}

void setModes(int descriptor, const termios& modes) {
    while (::tcsetattr(descriptor, TCSANOW, &modes) != 0 && errno == EINTR) {
    }
}

} // namespace

TerminalLine::TerminalLine(TerminalSignals& signals) : signals_(signals), descriptor_(openTerminal()) {}

TerminalLine::~TerminalLine() {
    giveBack();
    ::close(descriptor_);
}

void TerminalLine::take(std::string_view greeting, std::string farewell) {
    if (!isTaken_ && ::tcgetattr(descriptor_, &found_) != 0)
        isLost_ = true;
    termios modes = found_;
    modes.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ICRNL | INLCR | IGNCR | INPCK | ISTRIP | IXON);
    modes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHONL | IEXTEN);
    // Ctrl-C, Ctrl-\ and Ctrl-Z are signals, and keys that were typed before one are kept.
    modes.c_lflag |= ISIG | NOFLSH;
    modes.c_cc[VMIN] = 1;
    modes.c_cc[VTIME] = 0;
    farewell_ = std::move(farewell);
    signals_.guard(descriptor_, found_, farewell_);
    setModes(descriptor_, modes);
    isTaken_ = true;
    rest_.clear();
    send(greeting);
}

void TerminalLine::giveBack() noexcept {
    if (!isTaken_)
        return;
    isTaken_ = false;
    rest_ = std::move(farewell_);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    for (sendRest(); !rest_.empty() && !isLost_ && std::chrono::steady_clock::now() < end; sendRest())
        wait(std::chrono::milliseconds(20));
    rest_.clear();
    setModes(descriptor_, found_);
    signals_.unguard();
}

void TerminalLine::send(std::string_view bytes) {
    rest_ += bytes;
    sendRest();
}

void TerminalLine::sendRest() {
    std::size_t sent = 0;
    while (sent < rest_.size() && !isLost_) {
        const ssize_t count = ::write(descriptor_, rest_.data() + sent, rest_.size() - sent);
        if (count > 0)
            sent += static_cast<std::size_t>(count);
        else if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        else if (count < 0 && errno != EINTR)
            isLost_ = true;
    }
    rest_.erase(0, sent);
    if (isLost_)
        rest_.clear();
}

bool TerminalLine::isBusy() {
    if (!rest_.empty())
        sendRest();
    int queued = 0; // real lines tell; what is behind a pseudo-terminal does not
    return !rest_.empty() || (::ioctl(descriptor_, TIOCOUTQ, &queued) == 0 && queued > fewBytes);
}

std::string TerminalLine::receive() {
    std::string received;
    std::array<char, 4096> buffer;
    while (!isLost_ && received.size() < (std::size_t{1} << 20)) {
        const ssize_t count = ::read(descriptor_, buffer.data(), buffer.size());
        if (count > 0)
            received.append(buffer.data(), static_cast<std::size_t>(count));
        else if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
            isLost_ = true;
        else if (errno != EINTR)
            break;
    }
    return received;
}

void TerminalLine::forgetInput() noexcept {
    ::tcflush(descriptor_, TCIFLUSH);
}

void TerminalLine::wait(std::optional<std::chrono::milliseconds> time) {
    fd_set readable;
    fd_set writable;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    if (!isLost_) {
        FD_SET(descriptor_, &readable);
        if (!rest_.empty())
            FD_SET(descriptor_, &writable);
    }
    FD_SET(signals_.descriptor(), &readable);
    const long count = time ? static_cast<long>(std::max(time->count(), decltype(time->count()){0})) : 0;
    timeval patience = {};
    patience.tv_sec = count / 1000;
    patience.tv_usec = static_cast<decltype(patience.tv_usec)>(count % 1000 * 1000);
    ::select(std::max(descriptor_, signals_.descriptor()) + 1, &readable, &writable, nullptr,
             time ? &patience : nullptr);
    if (!rest_.empty())
        sendRest();
}

TerminalLine::Size TerminalLine::size() const {
    winsize size = {};
    if (::ioctl(descriptor_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0)
        return {size.ws_col, size.ws_row};
    return {fromEnvironment("COLUMNS", 80), fromEnvironment("LINES", 24)};
}

} // namespace tarnwell
