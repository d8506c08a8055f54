#include "TarnwellTidyKit/Browser/UserShell.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace tarnwell {

namespace {

enum Step : int { enteringTheFolder, startingTheShell };

/// Only calls that are safe behind fork() stand here: there are other threads.
[[noreturn]] void become(const char* shell, const char* folder, int errors, int report) {
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    for (const int signal : {SIGPIPE, SIGXFSZ})
        ::sigaction(signal, &usual, nullptr);
    ::dup2(errors, STDERR_FILENO);
    std::array<int, 2> failure = {enteringTheFolder, 0};
    if (::chdir(folder) == 0) {
        failure[0] = startingTheShell;
        ::execl(shell, shell, static_cast<char*>(nullptr));
    }
    failure[1] = errno;
    (void)!::write(report, failure.data(), sizeof failure);
    ::_exit(127);
}

} // namespace

std::string runUserShell(const std::string& folder, int errors) {
    const char* chosen = std::getenv("SHELL");
    const std::string shell = chosen != nullptr && *chosen == '/' ? chosen : "/bin/sh";
    const auto failed = [](const std::string& what, int error) {
        return what + ": " + std::generic_category().message(error) + ".";
    };
    int ends[2] = {-1, -1}; // tells of what fails in the child; closed by what succeeds
    if (::pipe(ends) != 0)
        return failed("The shell could not be started", errno);
    for (const int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    const pid_t child = ::fork();
    if (child == 0)
        become(shell.c_str(), folder.c_str(), errors, ends[1]);
    const int error = errno;
    ::close(ends[1]);
    std::array<int, 2> failure = {};
    ssize_t count = 0;
    while (child > 0 && (count = ::read(ends[0], failure.data(), sizeof failure)) < 0 && errno == EINTR) {
    }
    ::close(ends[0]);
    if (child < 0)
        return failed("The shell could not be started", error);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (count != sizeof failure)
        return {};
    return failed(failure[0] == startingTheShell ? shell + " could not be started"
                                                 : "There is no way into " + folder,
                  failure[1]);
}

} // namespace tarnwell
