#include "BrowserStart.hpp"

#include "TarnwellCore/Platform/FreedMemory.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellTidyKit/Browser/Browser.hpp"
#include "TarnwellTidyKit/Browser/UserShell.hpp"
#include "TarnwellTidyKit/Screen/CursesScreen.hpp"
#include "TarnwellTidyKit/Screen/TerminalSignals.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>

namespace tarnwell {

namespace {

constexpr off_t mostKept = 16'384; // bytes, of the end

// A handler knows no object.
std::atomic<int> keptFile = -1;
std::atomic<int> realErrors = -1;

/// For a process that ends by a crash: the end of what was kept, with blanks for what a terminal could obey.
/// Safe in handlers.
extern "C" void showKeptErrors() {
    const int from = keptFile;
    const int to = realErrors;
    const off_t size = from < 0 || to < 0 ? 0 : ::lseek(from, 0, SEEK_END);
    char bytes[512];
    for (off_t place = std::max<off_t>(size - mostKept, 0); place < size;) {
        const ssize_t count = ::pread(from, bytes, sizeof bytes, place);
        if (count <= 0)
            return;
        for (char& byte : std::span(bytes, static_cast<std::size_t>(count)))
            if (byte != '\n' && (byte < ' ' || byte > '~'))
                byte = ' ';
        // A terminal that takes nothing is not waited for.
        pollfd writable = {.fd = to, .events = POLLOUT, .revents = 0};
        if (::poll(&writable, 1, 100) != 1)
            return;
        if (::write(to, bytes, static_cast<std::size_t>(count)) != count)
            return;
        place += count;
    }
}

/// Libraries that complain on standard error would write into the picture: while one exists, what is written
/// there is kept, where that is a terminal, and shown at its end.
class KeptErrors {
public:
    KeptErrors() {
        if (::isatty(STDERR_FILENO) != 1)
            return;
        file_ = std::tmpfile(); // without one it goes nowhere
        const int place = file_ != nullptr ? ::fileno(file_) : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        before_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        if (before_ >= 0 && place >= 0) {
            ::fcntl(place, F_SETFD, FD_CLOEXEC);
            ::fcntl(place, F_SETFL, O_APPEND); // others write there, too, and one reads
            ::dup2(place, STDERR_FILENO);
        }
        if (file_ == nullptr) {
            if (place >= 0)
                ::close(place);
            return;
        }
        keptFile = place;
        realErrors = before_;
        TerminalSignals::setLastWords(showKeptErrors);
    }
    ~KeptErrors() {
        TerminalSignals::setLastWords(nullptr);
        keptFile = realErrors = -1;
        if (before_ >= 0) {
            ::dup2(before_, STDERR_FILENO);
            ::close(before_);
        }
        if (file_ == nullptr)
            return;
        try {
            std::fputs(text().c_str(), stderr); // NOLINT(cert-err33-c)
        } catch (const std::exception&) {       // NOLINT(bugprone-empty-catch)
            // No memory for a few lines: they are lost.
        }
        std::fclose(file_); // NOLINT(cert-err33-c)
    }
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;

    /// What standard error was before.
    int before() const { return before_ >= 0 ? before_ : STDERR_FILENO; }

private:
    /// What was written: the end, where that is much. Harmless to a terminal.
    std::string text() const {
        const int descriptor = ::fileno(file_);
        const off_t size = ::lseek(descriptor, 0, SEEK_END);
        std::string bytes(static_cast<std::size_t>(std::clamp<off_t>(size, 0, mostKept)), '\0');
        const ssize_t count =
            ::pread(descriptor, bytes.data(), bytes.size(), std::max<off_t>(size - mostKept, 0));
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        std::string lines;
        for (std::string_view rest = bytes; !rest.empty();) {
            const auto end = rest.find('\n');
            lines += harmless(rest.substr(0, end)) + "\n";
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
        return lines;
    }

    std::FILE* file_ = nullptr;
    int before_ = -1;
};

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
    giveLargeBlocksBack();
    const KeptErrors kept; // shown when the screen has gone
    CursesScreen screen(
        {.ground = ground(context.settings().theme()),
         .hasColours = request.color == TidyColor::always ||
                       (request.color == TidyColor::automatic && context.surroundings.hasColors)});
    return runBrowser(
        screen, {.folder = folder,
                 .isReadOnly = request.isReadOnly,
                 .choices = request.scan,
                 .services = &context.services,
                 .surroundings = &context.surroundings,
                 .shell = [&kept](const std::string& place) { return runUserShell(place, kept.before()); }});
}

} // namespace

TidyBrowser browserOnTerminal() {
    if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1)
        return {};
    return browse;
}

} // namespace tarnwell
