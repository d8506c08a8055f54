// terminal-run: a program on a pseudo-terminal, and how it looks to who sits there: when the first and the
// last rows of a start are seen, how long each key takes to be answered and in how many bytes, memory, and
// the processor's time while nothing is done. Plays a terminal that answers the questions programs ask.
//
// It knows nothing of the programs: a screen that does not change any more for a while is complete.

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "Benchmarks/Arguments.hpp"

namespace tarnwell::benchmarks {
namespace {

constexpr std::string_view usage =
    "usage: terminal-run [OPTIONS] KEYS PROGRAM [ARGUMENT...]\n"
    "Starts a program on a terminal of 80 by 24, types KEYS (one byte each) when its screen is complete, "
    "then q.\n"
    "Prints seconds to the first and the complete screen, then milliseconds and bytes of each answer: "
    "median,\n"
    "worst, bytes; MiB at most; ms of processor time in an idle second; the processor's seconds in all.\n"
    "  --quiet N    a screen that has not changed for so many ms is complete (500)\n"
    "  --rows FOLDER  the first rows are there when the name of one of its entries is seen (any output)\n"
    "  --pace N     ms between two keys; with --early, also while the program scans (30)\n"
    "  --early N    0 or 1 (0)\n"
    "  --repeat N   types KEYS so many times (50)\n";

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

class Terminal {
public:
    explicit Terminal(char** words) {
        master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0)
            failCall("pseudo-terminal");
        const std::string name = ::ptsname(master_);
        winsize size = {};
        size.ws_col = 80;
        size.ws_row = 24;
        const int slave = ::open(name.c_str(), O_RDWR | O_NOCTTY);
        ::ioctl(slave, TIOCSWINSZ, &size);
        begin = Clock::now();
        child_ = ::fork();
        if (child_ == 0) {
            ::setsid();
            ::ioctl(slave, TIOCSCTTY, 0);
            for (const int descriptor : {0, 1, 2})
                ::dup2(slave, descriptor);
            ::close(slave);
            ::setenv("TERM", "xterm-256color", 1);
            ::setenv("LANG", "C.UTF-8", 1);
            ::execvp(words[0], words);
            ::_exit(127);
        }
        ::close(slave);
    }

    /// What comes within the time; empty when nothing does.
    std::string read(int milliseconds) {
        pollfd readable = {.fd = master_, .events = POLLIN, .revents = 0};
        std::array<char, 65'536> buffer;
        if (isGone || ::poll(&readable, 1, milliseconds) <= 0)
            return {};
        const ssize_t count = ::read(master_, buffer.data(), buffer.size());
        if (count <= 0) {
            isGone = true;
            return {};
        }
        const std::string_view text(buffer.data(), static_cast<std::size_t>(count));
        // Questions come whole in all programs that were measured.
        for (const auto& [question, reply] :
             {std::pair<std::string_view, std::string_view>{"\x1B[c", "\x1B[?62;22c"},
              {"\x1B[0c", "\x1B[?62;22c"},
              {"\x1B[5n", "\x1B[0n"},
              {"\x1B[6n", "\x1B[1;1R"},
              {"\x1B]11;?\x1B\\", "\x1B]11;rgb:0000/0000/0000\x1B\\"}})
            for (std::size_t at = 0; (at = text.find(question, at)) != std::string_view::npos; ++at)
                type(reply);
        return std::string(text);
    }
    void type(std::string_view bytes) { (void)!::write(master_, bytes.data(), bytes.size()); }

    /// Of the kernel's file about the process, the number behind a word.
    double status(const char* word) const {
        std::ifstream file("/proc/" + std::to_string(child_) + "/status");
        for (std::string line; std::getline(file, line);)
            if (line.starts_with(word))
                return std::strtod(line.c_str() + std::string_view(word).size(), nullptr);
        return 0;
    }
    /// Milliseconds that all its threads have run.
    double processorTime() const {
        clockid_t clock = {};
        timespec time = {};
        if (::clock_getcpuclockid(child_, &clock) != 0 || ::clock_gettime(clock, &time) != 0)
            return 0;
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
    }
    /// Seconds of the processor in all.
    double end() {
        for (int attempt = 0; attempt < 200 && !isGone; ++attempt)
            (void)read(20);
        rusage used = {};
        int result = 0;
        ::kill(child_, SIGTERM);
        ::wait4(child_, &result, 0, &used);
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(used.ru_utime) + seconds(used.ru_stime);
    }

    Clock::time_point begin;
    bool isGone = false;

private:
    int master_ = -1;
    pid_t child_ = -1;
};

struct Options {
    std::uint64_t quiet = 500;
    std::uint64_t pace = 30;
    std::uint64_t early = 0;
    std::uint64_t repeat = 50;
    std::vector<std::string> rows;
};

struct Answers {
    std::vector<double> milliseconds;
    std::vector<double> bytes;

    static double median(std::vector<double> values) {
        if (values.empty())
            return 0;
        std::ranges::sort(values);
        return values[values.size() / 2];
    }
};

/// Types a key and waits for what it changes: to the first byte of the answer; the rest belongs to it as long
/// as it comes within the pace.
void typeKey(Terminal& terminal, char key, const Options& options, Answers& answers) {
    const auto typed = Clock::now();
    terminal.type(std::string_view(&key, 1));
    constexpr int patience = 5000;
    std::string answer = terminal.read(patience);
    answers.milliseconds.push_back(secondsSince(typed) * 1000);
    const auto end = Clock::now() + std::chrono::milliseconds(options.pace);
    while (Clock::now() < end)
        answer += terminal.read(static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count()));
    answers.bytes.push_back(static_cast<double>(answer.size()));
}

int run(const Options& options, std::string_view keys, char** words) {
    Terminal terminal(words);
    double first = 0;
    double complete = 0;
    std::string seen;
    Answers early;
    auto lastKey = Clock::now();
    for (std::size_t number = 0; !terminal.isGone;) {
        const std::string piece = terminal.read(static_cast<int>(options.quiet));
        if (piece.empty())
            break;
        complete = secondsSince(terminal.begin);
        if (first == 0) {
            seen += piece;
            if (options.rows.empty() || std::ranges::any_of(options.rows, [&](const std::string& name) {
                    return seen.find(name) != std::string::npos;
                }))
                first = complete;
        } else if (options.early != 0 && secondsSince(lastKey) * 1000 > static_cast<double>(options.pace)) {
            typeKey(terminal, keys[number++ % keys.size()], options, early);
            lastKey = Clock::now();
        }
    }
    const double before = terminal.processorTime();
    std::string noise = terminal.read(1000);
    const double idle = terminal.processorTime() - before;
    Answers answers;
    for (std::uint64_t time = 0; time < options.repeat; ++time)
        for (const char key : keys)
            typeKey(terminal, key, options, answers);
    const double peak = terminal.status("VmHWM:") / 1024;
    terminal.type("q");
    const double processor = terminal.end();
    const auto print = [](const Answers& all) {
        std::printf("\t%.2f\t%.2f\t%.0f", Answers::median(all.milliseconds),
                    all.milliseconds.empty() ? 0 : std::ranges::max(all.milliseconds),
                    Answers::median(all.bytes));
    };
    std::printf("%.3f\t%.3f", first, complete);
    print(answers);
    print(early);
    std::printf("\t%.1f\t%.1f\t%.2f\n", peak, idle, processor);
    return 0;
}

} // namespace
} // namespace tarnwell::benchmarks

int main(int count, char** values) {
    using namespace tarnwell::benchmarks;
    Options options;
    int index = 1;
    for (; index + 1 < count && values[index][0] == '-'; index += 2) {
        const std::string_view word = values[index];
        std::uint64_t* number = word == "--quiet"    ? &options.quiet
                                : word == "--pace"   ? &options.pace
                                : word == "--early"  ? &options.early
                                : word == "--repeat" ? &options.repeat
                                                     : nullptr;
        if (number != nullptr)
            *number = std::strtoull(values[index + 1], nullptr, 10);
        else if (word == "--rows")
            for (const auto& entry : std::filesystem::directory_iterator(values[index + 1])) {
                if (options.rows.size() < 2000)
                    options.rows.push_back(entry.path().filename().native());
            }
        else
            failUsage(usage);
    }
    if (index + 2 > count || values[index][0] == '\0')
        failUsage(usage);
    return run(options, values[index], values + index + 1);
}
