#include "BrowserStart.hpp"

#include "TarnwellTidyKit/Browser/Browser.hpp"
#include "TarnwellTidyKit/Screen/CursesScreen.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace tarnwell {

namespace {

/// Libraries that complain on standard error would write into the picture: while one exists, what is written
/// there goes nowhere, where that is a terminal.
class QuietErrors {
public:
    QuietErrors() {
        if (::isatty(STDERR_FILENO) != 1)
            return;
        before_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (before_ >= 0 && nothing >= 0)
            ::dup2(nothing, STDERR_FILENO);
        if (nothing >= 0)
            ::close(nothing);
    }
    ~QuietErrors() {
        if (before_ < 0)
            return;
        ::dup2(before_, STDERR_FILENO);
        ::close(before_);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;

    /// What standard error was before.
    int before() const { return before_ >= 0 ? before_ : STDERR_FILENO; }

private:
    int before_ = -1;
};

/// The user's shell in a folder; comes back when it ends. Only calls that are safe behind fork() stand in the
/// child: there are other threads.
void runShell(const std::string& folder, int errors) {
    const char* chosen = std::getenv("SHELL");
    const std::string shell = chosen != nullptr && *chosen != '\0' ? chosen : "/bin/sh";
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(errors, STDERR_FILENO);
        if (::chdir(folder.c_str()) == 0)
            ::execl(shell.c_str(), shell.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
}

CursesScreen::Ground ground(AppTheme theme) {
    switch (theme) {
    case AppTheme::dark:
        return CursesScreen::Ground::dark;
    case AppTheme::light:
        return CursesScreen::Ground::light;
    case AppTheme::system:
        break;
    }
    return CursesScreen::Ground::asked;
}

std::int32_t browse(const BrowseRequest& request, const std::string& folder, TidyContext& context) {
    CursesScreen screen(
        {.ground = ground(context.settings().theme()),
         .hasColours = request.color == TidyColor::always ||
                       (request.color == TidyColor::automatic && context.surroundings.hasColors)});
    const QuietErrors quiet;
    return runBrowser(screen,
                      {.folder = folder,
                       .isReadOnly = request.isReadOnly,
                       .services = &context.services,
                       .surroundings = &context.surroundings,
                       .shell = [&quiet](const std::string& place) { runShell(place, quiet.before()); }});
}

} // namespace

TidyBrowser browserOnTerminal() {
    if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1)
        return {};
    return browse;
}

} // namespace tarnwell
