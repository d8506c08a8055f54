#include "Tests/Support/Terminal.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace tarnwell::test {

Terminal::Terminal() : screen_(::posix_openpt(O_RDWR | O_NOCTTY)), line_(-1) {
    if (screen_ < 0 || ::grantpt(screen_) != 0 || ::unlockpt(screen_) != 0)
        std::abort();
    ::fcntl(screen_, F_SETFD, FD_CLOEXEC);
    line_ = ::open(::ptsname(screen_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (line_ < 0)
        std::abort();
}

Terminal::~Terminal() {
    ::close(screen_);
    if (line_ >= 0)
        ::close(line_);
}

void Terminal::control() const {
    ::setsid();
    ::ioctl(line_, TIOCSCTTY, 0);
}

void Terminal::replace(int stream) const {
    ::dup2(line_, stream);
}

std::string Terminal::read() {
    if (line_ >= 0)
        ::close(std::exchange(line_, -1));
    char bytes[4'096];
    const ssize_t length = ::read(screen_, bytes, sizeof bytes);
    return {bytes, length > 0 ? static_cast<std::size_t>(length) : 0};
}

std::string Terminal::readToEnd() {
    std::string shown;
    for (std::string piece = read(); !piece.empty(); piece = read())
        shown += piece;
    return shown;
}

void Terminal::type(const std::string& keys) const {
    if (::write(screen_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        std::abort();
}

} // namespace tarnwell::test
