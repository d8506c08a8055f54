#include "TarnwellCLIKit/CLIMain.hpp"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace {

/// Writes all of the text, or as much as the other end takes: a closed pipe or a full device changes nothing
/// about what the command did. False when not all was taken.
bool write(int descriptor, std::string_view text) {
    constexpr std::size_t largestPiece = std::size_t{1} << 30; // some systems refuse pieces beyond 31 bits
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), std::min(text.size(), largestPiece));
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            // Somebody else made the pipe non-blocking.
            pollfd writable = {.fd = descriptor, .events = POLLOUT, .revents = 0};
            if (::poll(&writable, 1, -1) < 0 && errno != EINTR)
                return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace

int main(int count, char** values) {
    // A reader that has gone and a limit on the size of files are failures of a write like any other. To
    // ignore these signals cannot fail.
    std::signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c)
    std::signal(SIGXFSZ, SIG_IGN); // NOLINT(cert-err33-c)
    tarnwell::CLIResult result;
    try {
        const std::vector<std::string> arguments(values + std::min(count, 1), values + count);
        bool isTaken = true;
        const auto output = [&](std::string_view piece) { isTaken = isTaken && write(STDOUT_FILENO, piece); };
        result = tarnwell::CLIMain::run(arguments, output,
                                        {.output = tarnwell::nameStyle(::isatty(STDOUT_FILENO) == 1),
                                         .error = tarnwell::nameStyle(::isatty(STDERR_FILENO) == 1)});
    } catch (const std::bad_alloc&) {
        write(STDERR_FILENO, "There is not enough memory.\n");
        ::_exit(1);
    }
    write(STDOUT_FILENO, result.standardOutput);
    write(STDERR_FILENO, result.standardError);
    // Taking a large result apart would cost time and change nothing.
    ::_exit(result.exitCode);
}
