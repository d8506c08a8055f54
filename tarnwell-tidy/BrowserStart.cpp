#include "BrowserStart.hpp"

#include "TarnwellCore/Platform/FreedMemory.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellTidyKit/Browser/Browser.hpp"
#include "TarnwellTidyKit/Browser/UserShell.hpp"
#include "TarnwellTidyKit/Screen/CursesScreen.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace tarnwell {

namespace {

/// Libraries that complain on standard error would write into the picture: while one exists, what is written
/// there is kept, where that is a terminal, and shown afterwards.
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
        if (file_ == nullptr && place >= 0)
            ::close(place);
    }
    ~KeptErrors() {
        if (before_ >= 0) {
            ::dup2(before_, STDERR_FILENO);
            ::close(before_);
        }
        if (file_ != nullptr)
            std::fclose(file_); // NOLINT(cert-err33-c)
    }
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;

    /// What standard error was before.
    int before() const { return before_ >= 0 ? before_ : STDERR_FILENO; }

    /// What was written so far: the end, where that is much. Harmless to a terminal.
    std::string text() const {
        constexpr off_t most = 16'384;
        if (file_ == nullptr)
            return {};
        const int descriptor = ::fileno(file_);
        const off_t size = ::lseek(descriptor, 0, SEEK_END);
        std::string bytes(static_cast<std::size_t>(std::clamp<off_t>(size, 0, most)), '\0');
        const ssize_t count =
            ::pread(descriptor, bytes.data(), bytes.size(), std::max<off_t>(size - most, 0));
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        std::string lines;
        for (std::string_view rest = bytes; !rest.empty();) {
            const auto end = rest.find('\n');
            lines += harmless(rest.substr(0, end)) + "\n";
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
        return lines;
    }

private:
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
    std::int32_t status = 0;
    std::string errors;
    {
        CursesScreen screen(
            {.ground = ground(context.settings().theme()),
             .hasColours = request.color == TidyColor::always ||
                           (request.color == TidyColor::automatic && context.surroundings.hasColors)});
        const KeptErrors kept;
        status = runBrowser(screen, {.folder = folder,
                                     .isReadOnly = request.isReadOnly,
                                     .choices = request.scan,
                                     .services = &context.services,
                                     .surroundings = &context.surroundings,
                                     .shell = [&kept](const std::string& place) {
                                         return runUserShell(place, kept.before());
                                     }});
        errors = kept.text();
    }
    std::fputs(errors.c_str(), stderr); // NOLINT(cert-err33-c)
    return status;
}

} // namespace

TidyBrowser browserOnTerminal() {
    if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1)
        return {};
    return browse;
}

} // namespace tarnwell
