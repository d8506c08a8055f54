#include "TarnwellTidyKit/Screen/TerminalSignals.hpp"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

// Handlers know no object, so what they use is here. All of it is lock-free.
std::atomic<int> writeEnd = -1;
std::atomic<bool> isWoken = false;
std::atomic<bool> isResized = false;
std::atomic<bool> isToSuspend = false;
std::atomic<bool> isContinued = false;
std::atomic<int> quitSignal = 0;   // not yet taken
std::atomic<bool> hasQuit = false; // one has come, taken or not
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

/// What gives the terminal back. Never changed once a handler may see it, and never taken apart: a handler
/// may still be at it.
struct Farewell {
    int descriptor;
    termios modes;
    std::string text;
};
std::atomic<const Farewell*> farewell = nullptr;
std::atomic<void (*)()> lastWords = nullptr;
static_assert(std::atomic<const Farewell*>::is_always_lock_free &&
              std::atomic<void (*)()>::is_always_lock_free);

constexpr std::array noted = {SIGWINCH, SIGTSTP, SIGCONT, SIGINT, SIGTERM, SIGHUP};
constexpr std::array fatal = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGQUIT, SIGTRAP, SIGSYS};
constexpr std::array forTheFront = {SIGINT, SIGQUIT, SIGTSTP};
std::array<struct sigaction, noted.size()> notedBefore;
std::array<struct sigaction, fatal.size()> fatalBefore;

void writeWake() noexcept {
    const char byte = 0;
    // A full pipe is as good as one byte more.
    (void)!::write(writeEnd, &byte, 1);
}

extern "C" void noteSignal(int signal) {
    const int savedError = errno;
    switch (signal) {
    case SIGWINCH:
        isResized = true;
        break;
    case SIGTSTP:
        isToSuspend = true;
        break;
    case SIGCONT:
        isContinued = true;
        break;
    default:
        // Who asks twice does not want to wait. A terminal that goes away tells so several times.
        if (hasQuit.exchange(true) && signal != SIGHUP) {
            giveTerminalBackNow();
            ::_exit(128 + signal);
        }
        int none = 0;
        quitSignal.compare_exchange_strong(none, signal);
    }
    writeWake();
    errno = savedError;
}

extern "C" void endBySignal(int signal) {
    giveTerminalBackNow();
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(signal, &action, nullptr);
    ::raise(signal); // comes when this handler has returned, which it may
}

void install(int signal, void (*handler)(int), int flags, struct sigaction* before) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, nullptr, before);
    if (before->sa_handler != SIG_IGN || signal == SIGWINCH || signal == SIGCONT)
        ::sigaction(signal, &action, nullptr);
}

} // namespace

void giveTerminalBackNow() noexcept {
    const Farewell* last = farewell.exchange(nullptr);
    if (last == nullptr)
        return;
    const char* text = last->text.data();
    std::size_t rest = last->text.size();
    // A terminal that takes nothing is not waited for.
    for (int attempt = 0; rest > 0 && attempt < 20; ++attempt) {
        const ssize_t count = ::write(last->descriptor, text, rest);
        if (count > 0) {
            text += count;
            rest -= static_cast<std::size_t>(count);
        } else if (errno == EAGAIN || errno == EINTR) {
            fd_set writable;
            FD_ZERO(&writable);
            FD_SET(last->descriptor, &writable);
            timeval patience = {.tv_sec = 0, .tv_usec = 20'000};
            ::select(last->descriptor + 1, nullptr, &writable, nullptr, &patience);
        } else {
            break;
        }
    }
    ::tcsetattr(last->descriptor, TCSANOW, &last->modes);
    if (void (*const speak)() = lastWords)
        speak();
}

TerminalSignals::TerminalSignals() {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0)
        throw std::system_error(errno, std::generic_category());
    for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    readEnd_ = ends[0];
    writeEnd = ends[1];
    isWoken = isResized = isToSuspend = isContinued = hasQuit = false;
    quitSignal = 0;
    // The stack may be what has overflown.
    static std::vector<char> otherStack(std::size_t{1} << 16);
    stack_t stack = {};
    stack.ss_sp = otherStack.data();
    stack.ss_size = otherStack.size();
    ::sigaltstack(&stack, nullptr);
    for (std::size_t index = 0; index < noted.size(); ++index)
        install(noted[index], noteSignal, SA_RESTART, &notedBefore[index]);
    for (std::size_t index = 0; index < fatal.size(); ++index)
        install(fatal[index], endBySignal, SA_ONSTACK | SA_NODEFER, &fatalBefore[index]);
}

TerminalSignals::~TerminalSignals() {
    unguard();
    for (std::size_t index = 0; index < noted.size(); ++index)
        ::sigaction(noted[index], &notedBefore[index], nullptr);
    for (std::size_t index = 0; index < fatal.size(); ++index)
        ::sigaction(fatal[index], &fatalBefore[index], nullptr);
    ::close(writeEnd.exchange(-1));
    ::close(readEnd_);
}

void TerminalSignals::guard(int descriptor, const termios& modes, std::string text) {
    static std::vector<std::unique_ptr<const Farewell>> all; // a few, one for each time the terminal is taken
    for (const auto& known : all)
        if (known->descriptor == descriptor && known->text == text &&
            std::memcmp(&known->modes, &modes, sizeof modes) == 0) {
            farewell = known.get();
            return;
        }
    all.push_back(std::make_unique<const Farewell>(Farewell{descriptor, modes, std::move(text)}));
    farewell = all.back().get();
}

void TerminalSignals::unguard() noexcept {
    farewell = nullptr;
}

void TerminalSignals::setLastWords(void (*words)()) noexcept {
    lastWords = words;
}

void TerminalSignals::wake() noexcept {
    if (!isWoken.exchange(true))
        writeWake();
}

void TerminalSignals::look() noexcept {
    std::array<char, 256> bytes;
    while (::read(readEnd_, bytes.data(), bytes.size()) > 0) {
    }
}

bool TerminalSignals::takeWake() noexcept {
    return isWoken.exchange(false);
}
bool TerminalSignals::takeResize() noexcept {
    return isResized.exchange(false);
}
bool TerminalSignals::takeSuspend() noexcept {
    return isToSuspend.exchange(false);
}
bool TerminalSignals::takeContinue() noexcept {
    return isContinued.exchange(false);
}
std::optional<int> TerminalSignals::takeQuit() noexcept {
    const int signal = quitSignal.exchange(0);
    return signal == 0 ? std::nullopt : std::optional(signal);
}

void TerminalSignals::forgetQuit() noexcept {
    if (quitSignal == 0)
        hasQuit = false;
}

void TerminalSignals::stop() noexcept {
    struct sigaction byDefault = {};
    byDefault.sa_handler = SIG_DFL;
    struct sigaction ours = {};
    ::sigaction(SIGTSTP, &byDefault, &ours);
    ::raise(SIGTSTP);
    ::sigaction(SIGTSTP, &ours, nullptr);
    isContinued = false;
}

TerminalSignals::Aside::Aside() noexcept {
    // Not ignored: that would be inherited by what is started.
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    nothing.sa_flags = SA_RESTART;
    for (std::size_t index = 0; index < before_.size(); ++index)
        ::sigaction(forTheFront[index], &nothing, &before_[index]);
}

TerminalSignals::Aside::~Aside() {
    for (std::size_t index = 0; index < before_.size(); ++index)
        ::sigaction(forTheFront[index], &before_[index], nullptr);
}

} // namespace tarnwell
