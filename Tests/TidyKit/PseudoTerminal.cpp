#include "Tests/TidyKit/PseudoTerminal.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>

namespace tarnwell::test {

using namespace std::chrono_literals;

PseudoTerminal::PseudoTerminal(const Options& options, const std::function<int()>& child) {
    start(options, child);
}

PseudoTerminal::PseudoTerminal(const Options& options, const std::vector<std::string>& words) {
    start(options, [&words] {
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str())); // NOLINT: as exec has it
        arguments.push_back(nullptr);
        ::execvp(arguments[0], arguments.data());
        return 127;
    });
}

void PseudoTerminal::start(const Options& options, const std::function<int()>& child) {
    options_ = options;
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0)
        throw std::runtime_error("There is no pseudo-terminal.");
    const std::string name = ::ptsname(master_);
    slave_ = ::open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    resize(options.width, options.height);
    ::tcgetattr(slave_, &before_);
    child_ = ::fork();
    if (child_ != 0)
        return;
    ::setsid();
    const int terminal = ::open(name.c_str(), O_RDWR);
    ::ioctl(terminal, TIOCSCTTY, 0);
    for (const int descriptor : {0, 1, 2})
        ::dup2(terminal, descriptor);
    if (terminal > 2)
        ::close(terminal);
    ::close(master_);
    ::setenv("TERM", options.type.c_str(), 1);
    for (const char* variable : {"NO_COLOR", "LC_ALL", "LC_CTYPE", "COLUMNS", "LINES"})
        ::unsetenv(variable);
    ::setenv("LANG", "C.UTF-8", 1);
    for (const std::string& pair : options.environment)
        ::setenv(pair.substr(0, pair.find('=')).c_str(), pair.substr(pair.find('=') + 1).c_str(), 1);
    ::_exit(child());
}

PseudoTerminal::~PseudoTerminal() {
    if (child_ > 0) {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }
    ::close(slave_);
    if (master_ >= 0)
        ::close(master_);
}

void PseudoTerminal::type(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(master_, bytes.data(), bytes.size());
        if (count <= 0)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void PseudoTerminal::resize(int width, int height) {
    winsize size = {};
    size.ws_col = static_cast<unsigned short>(width);
    size.ws_row = static_cast<unsigned short>(height);
    ::ioctl(master_, TIOCSWINSZ, &size);
}

void PseudoTerminal::signal(int number) {
    ::kill(child_, number);
}

void PseudoTerminal::hangUp() {
    ::close(std::exchange(slave_, -1));
    ::close(std::exchange(master_, -1));
}

void PseudoTerminal::answer() {
    const std::array<std::pair<std::string_view, std::string>, 3> replies{{
        {"\x1B[c", options_.answers ? "\x1B[?62;22c" : ""},
        {"\x1B[5n", options_.answers ? "\x1B[0n" : ""},
        {"\x1B]11;?\x1B\\", options_.ground.empty() ? "" : "\x1B]11;" + options_.ground + "\x1B\\"},
    }};
    while (answered_ < everything_.size()) {
        const std::string_view rest = std::string_view(everything_).substr(answered_);
        std::size_t length = 1;
        for (const auto& [question, reply] : replies) {
            if (rest.size() < question.size() && question.starts_with(rest))
                return; // more of it is to come
            if (rest.starts_with(question)) {
                type(reply);
                length = question.size();
            }
        }
        answered_ += length;
    }
}

std::string PseudoTerminal::read(std::chrono::milliseconds time, std::size_t most) {
    std::string text;
    const auto end = std::chrono::steady_clock::now() + time;
    std::array<char, 4096> buffer;
    while (text.size() < most) {
        const auto rest =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd readable = {.fd = master_, .events = POLLIN, .revents = 0};
        if (rest.count() <= 0 || ::poll(&readable, 1, static_cast<int>(rest.count())) <= 0)
            break;
        const ssize_t count = ::read(master_, buffer.data(), std::min(buffer.size(), most - text.size()));
        if (count <= 0)
            break;
        text.append(buffer.data(), static_cast<std::size_t>(count));
        everything_.append(buffer.data(), static_cast<std::size_t>(count));
        answer();
    }
    return text;
}

bool PseudoTerminal::expect(std::string_view text) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        if (const std::size_t at = unseen_.find(text); at != std::string::npos) {
            unseen_.erase(0, at + text.size());
            return true;
        }
        if (std::chrono::steady_clock::now() > end)
            return false;
        unseen_ += read(20ms);
    }
}

termios PseudoTerminal::modes() const {
    termios modes = {};
    ::tcgetattr(slave_, &modes);
    return modes;
}

int PseudoTerminal::wait(bool untilStopped) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (int status = 0; std::chrono::steady_clock::now() < end;) {
        if (::waitpid(child_, &status, WNOHANG | (untilStopped ? WUNTRACED : 0)) == child_) {
            if (!WIFSTOPPED(status))
                child_ = -1;
            if (master_ >= 0)
                unseen_ += read(30ms); // what it said last
            return status;
        }
        if (master_ >= 0)
            unseen_ += read(10ms);
        else
            std::this_thread::sleep_for(10ms);
    }
    return -1;
}

} // namespace tarnwell::test
