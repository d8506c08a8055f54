#include "TarnwellTidyKit/Commands/TidyRunner.hpp"

#include "BrowserStart.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace tarnwell;

/// Writes all of the text; the system's error number where that fails.
int write(int descriptor, std::string_view text) {
    constexpr std::size_t largestPiece = std::size_t{1} << 30; // some systems refuse pieces beyond 31 bits
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), std::min(text.size(), largestPiece));
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            // Somebody else made the pipe non-blocking.
            pollfd writable = {.fd = descriptor, .events = POLLOUT, .revents = 0};
            if (::poll(&writable, 1, -1) < 0 && errno != EINTR)
                return errno;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

/// What was to be printed has not arrived.
struct OutputError : std::runtime_error {
    explicit OutputError(int errorNumber)
        : std::runtime_error(std::string("The output could not be written: ") + std::strerror(errorNumber) +
                             ".") {}
};

/// A reader that has gone knows, a full disk is said.
std::atomic<bool> isReaderGone = false;

/// The line on the terminal behind standard error that tells how far things are.
class StatusLine {
public:
    void show(std::string_view text) {
        const std::lock_guard guard(mutex_);
        if (isClosed_ || (text.empty() && !isShown_))
            return;
        write(STDERR_FILENO, "\r\033[K" + std::string(text));
        isShown_ = !text.empty();
    }
    /// Removes the line for good. A terminal that takes no text is not waited for.
    void close() {
        std::unique_lock guard(mutex_, std::try_to_lock);
        for (int attempt = 0; !guard.owns_lock() && attempt < 20; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            (void)guard.try_lock();
        }
        if (!guard.owns_lock() || isClosed_)
            return;
        isClosed_ = true;
        if (isShown_)
            write(STDERR_FILENO, "\r\033[K");
    }

private:
    std::mutex mutex_;      // no timed one: the thread sanitizer does not see how those are locked
    bool isShown_ = false;  // guarded by mutex_
    bool isClosed_ = false; // guarded by mutex_
};

// A signal's handler leaves its number here, for a thread that may do more than a handler.
int signalPipe[2] = {-1, -1};

extern "C" void passOn(int signal) {
    const int savedError = errno;
    const auto number = static_cast<unsigned char>(signal);
    (void)!::write(signalPipe[1], &number, 1);
    errno = savedError;
}

/// Ends the process when a signal asks for it: between two steps that must not be cut, and otherwise at once,
/// whatever the kernel keeps the other threads waiting for.
class SignalWatch {
public:
    SignalWatch(TidyInterruption& interruption, StatusLine& status) {
        if (::pipe(signalPipe) != 0)
            return; // signals then end the process as they do any other
        for (const int end : signalPipe)
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(signalPipe[1], F_SETFL, O_NONBLOCK);
        try {
            std::thread([this, &interruption, &status] { watch(interruption, status); }).detach();
        } catch (const std::system_error&) {
            return;
        }
        struct sigaction action = {};
        action.sa_handler = passOn;
        action.sa_flags = SA_RESTART;
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction before = {};
            ::sigaction(signal, nullptr, &before);
            if (before.sa_handler != SIG_IGN) // nohup
                ::sigaction(signal, &action, nullptr);
        }
    }

    /// To be called when the command has come back: it is then left to end as it likes. A command that was
    /// called off comes back soon; it is waited for so that it can say what it did.
    void commandIsBack() {
        const std::lock_guard guard(mutex_);
        isBack_ = true;
        changed_.notify_all();
    }

    /// The signal that ends the process, or 0.
    int signal() const { return signal_; }

private:
    void watch(TidyInterruption& interruption, StatusLine& status) {
        unsigned char number = 0;
        while (::read(signalPipe[0], &number, 1) != 1)
            if (errno != EINTR)
                return;
        signal_ = number;
        interruption.interrupt();
        // A second signal ends without waiting: every step is whole, or as if it had not begun, at any
        // moment.
        std::thread([&status] {
            unsigned char second = 0;
            while (::read(signalPipe[0], &second, 1) != 1)
                if (errno != EINTR)
                    return;
            status.close();
            ::_exit(128 + second);
        }).detach();
        interruption.waitForActs();
        {
            std::unique_lock guard(mutex_);
            if (changed_.wait_for(guard, std::chrono::milliseconds(25), [this] { return isBack_; }))
                return; // the main thread prints and ends
        }
        status.close();
        ::_exit(128 + number);
    }

    std::atomic<int> signal_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isBack_ = false; // guarded by mutex_
};

std::size_t terminalColumns(int descriptor) {
    winsize size = {};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

/// Whether the answer on the terminal begins with a "y".
bool askOnTerminal(const std::string& question) {
    write(STDERR_FILENO, question + " [y/N] ");
    std::string answer;
    char character = 0;
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, &character, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0 || character == '\n')
            break;
        answer += character;
    }
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

bool isSet(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

TidySurroundings lookAround(StatusLine& status) {
    TidySurroundings surroundings;
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal == nullptr || *terminal == '\0' || std::string_view(terminal) == "dumb";
    surroundings.isTerminal = ::isatty(STDOUT_FILENO) == 1;
    surroundings.hasColors = surroundings.isTerminal && !isDumb && !isSet("NO_COLOR");
    if (surroundings.isTerminal)
        surroundings.columns = terminalColumns(STDOUT_FILENO);
    if (::isatty(STDERR_FILENO) == 1) {
        surroundings.errorColumns = terminalColumns(STDERR_FILENO);
        if (!isDumb)
            surroundings.status = [&status](std::string_view text) { status.show(text); };
        if (::isatty(STDIN_FILENO) == 1)
            surroundings.ask = askOnTerminal;
    }
    surroundings.output = [](std::string_view piece) {
        const int error = write(STDOUT_FILENO, piece);
        isReaderGone = isReaderGone || error == EPIPE;
        if (error != 0)
            throw OutputError(error);
    };
    return surroundings;
}

} // namespace

int main(int count, char** values) {
    // A reader that has gone and a limit on the size of files are failures of a write like any other.
    std::signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c)
    std::signal(SIGXFSZ, SIG_IGN); // NOLINT(cert-err33-c)
    // Threads use these to the very end, so they are never taken apart.
    static StatusLine status;
    static const TidySurroundings surroundings = lookAround(status);
    static SignalWatch watch(*surroundings.interruption, status);

    TidyResult result;
    bool isTaken = true;
    try {
        const std::vector<std::string> arguments(values + std::min(count, 1), values + count);
        result = TidyRunner::run(arguments, TidyServices::live(), surroundings, browserOnTerminal());
        if (isReaderGone) // the failure of a long listing
            result.standardError.clear();
        surroundings.output(result.standardOutput);
    } catch (const OutputError& error) {
        isTaken = false;
        if (!isReaderGone)
            result.standardError += "tarnwell-tidy: " + std::string(error.what()) + "\n";
    } catch (const std::bad_alloc&) {
        write(STDERR_FILENO, "tarnwell-tidy: There is not enough memory.\n");
        ::_exit(1);
    }
    watch.commandIsBack();
    status.close();
    write(STDERR_FILENO, result.standardError);
    const int signal = watch.signal();
    // Taking large results apart would cost time and change nothing.
    ::_exit(result.exitCode == TidyResult::interrupted && signal != 0 ? 128 + signal
            : isTaken || result.exitCode != 0                         ? result.exitCode
                                                                      : TidyResult::failed);
}
