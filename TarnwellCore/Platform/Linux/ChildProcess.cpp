#include "TarnwellCore/Platform/Linux/ChildProcess.hpp"

#include "TarnwellCore/Platform/Linux/ProcessSpawn.hpp"
#include "TarnwellCore/Platform/ToolRun.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <thread>
#include <utility>

namespace tarnwell {

namespace {

using Clock = ChildProcess::Clock;

/// How often a program is looked at where no descriptor tells of its end.
constexpr auto lookInterval = std::chrono::milliseconds(10);
constexpr std::size_t readSize = 65'536;

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { close(); }

    int number() const { return number_; }
    bool isOpen() const { return number_ >= 0; }
    void close() {
        if (number_ >= 0)
            ::close(std::exchange(number_, -1));
    }
    /// Moves the descriptor to a number above those of the standard streams: a host may have closed them, and
    /// the program's own are put in their place one after another.
    bool liftAboveStandard() {
        if (number_ > STDERR_FILENO)
            return true;
        const int lifted = ::fcntl(number_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (lifted < 0)
            return false;
        close();
        number_ = lifted;
        return true;
    }

private:
    int number_;
};

/// The reading end of one pipe and what came out of it.
struct Output {
    Descriptor descriptor;
    std::string bytes;
    std::size_t most = mostToolOutput;

    bool isFull() const { return bytes.size() >= most; }
    /// Whether there is more to come that is wanted.
    bool isRead() const { return descriptor.isOpen() && !isFull(); }

    /// Once its program has ended: what the pipe holds is its answer still.
    void takeTheRest() {
        const int held = ::fcntl(descriptor.number(), F_GETPIPE_SZ);
        most += held > 0 ? static_cast<std::size_t>(held) : readSize;
    }
};

/// A descriptor that polls readable once waiting for this child takes no time to speak of.
Descriptor openExitDescriptor(pid_t process) {
    // By number, since the C library's wrapper is younger than the kernel's call (5.3).
    return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
}

/// Milliseconds for poll: rounded up, so that a deadline has passed when poll returns.
int pollTimeout(std::optional<Clock::time_point> deadline) {
    if (!deadline)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000'000));
}

bool hasPassed(std::optional<Clock::time_point> deadline) {
    return deadline && Clock::now() >= *deadline;
}

} // namespace

struct ChildProcess::State {
    pid_t process = 0;
    bool hasEnded = false; // and is reaped: `process` may be another's number by now
    bool keepsOutput = true;
    std::int32_t status = -1;
    Descriptor exit;
    std::array<Output, 2> outputs; // standard output, standard error
    std::vector<char> buffer = std::vector<char>(readSize);

    /// Reads once from a pipe that poll called ready; closes it at its end.
    void read(Output& output) {
        const std::size_t wanted = std::min(buffer.size(), output.most - output.bytes.size());
        const ssize_t count = ::read(output.descriptor.number(), buffer.data(), wanted);
        if (count > 0) {
            if (keepsOutput)
                output.bytes.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            output.descriptor.close();
        }
    }

    /// Waits until a pipe can be read or the program ends, at most until the deadline, and reads once from
    /// each pipe that is ready. Returns whether the program may have ended.
    bool step(std::optional<Clock::time_point> deadline, bool watchesExit) {
        std::array<pollfd, 3> polled{};
        for (std::size_t index = 0; index < outputs.size(); ++index)
            polled[index] = {outputs[index].isFull() ? -1 : outputs[index].descriptor.number(), POLLIN, 0};
        polled[2] = {watchesExit ? exit.number() : -1, POLLIN, 0};
        const int ready = ::poll(polled.data(), polled.size(), pollTimeout(deadline));
        if (ready == 0 || (ready < 0 && errno == EINTR))
            return false;
        if (ready < 0) {
            // No memory for polling, or none allowed: looking now and then does as well, no pipe blocks.
            std::this_thread::sleep_for(lookInterval);
            for (Output& output : outputs)
                if (output.isRead())
                    read(output);
            return true;
        }
        for (std::size_t index = 0; index < outputs.size(); ++index) {
            if (polled[index].revents != 0)
                read(outputs[index]);
        }
        return polled[2].revents != 0;
    }

    /// Reaps the program if it has ended.
    void reap() {
        int waitStatus = 0;
        pid_t reaped = 0;
        do {
            reaped = ::waitpid(process, &waitStatus, WNOHANG);
        } while (reaped < 0 && errno == EINTR);
        if (reaped == 0)
            return;
        hasEnded = true;
        exit.close();
        if (reaped == process)
            status = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : WTERMSIG(waitStatus);
    }

    /// Whether the program can be waiting for nobody but us.
    bool isHeldUp() const { return std::ranges::any_of(outputs, &Output::isFull); }

    bool waitForExit(std::optional<Clock::time_point> deadline, std::optional<double> heldUpLimit) {
        while (!hasEnded) {
            if (heldUpLimit && isHeldUp()) {
                deadline = Clock::now() +
                           std::chrono::ceil<Clock::duration>(std::chrono::duration<double>(*heldUpLimit));
                heldUpLimit.reset();
            }
            if (exit.isOpen()) {
                if (step(deadline, true))
                    reap();
            } else {
                const Clock::time_point nextLook = Clock::now() + lookInterval;
                step(deadline ? std::min(*deadline, nextLook) : nextLook, false);
                reap();
            }
            if (!hasEnded && hasPassed(deadline))
                return false;
        }
        return true;
    }
};

std::optional<ChildProcess> ChildProcess::launch(const std::string& executable,
                                                 const std::vector<std::string>& arguments) {
    auto state = std::make_unique<State>();
    std::array<Descriptor, 2> writingEnds;
    for (std::size_t index = 0; index < writingEnds.size(); ++index) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            return std::nullopt;
        state->outputs[index].descriptor = Descriptor(ends[0]);
        writingEnds[index] = Descriptor(ends[1]);
        if (!writingEnds[index].liftAboveStandard())
            return std::nullopt;
        // Of the reading end alone: the program's end keeps blocking.
        if (::fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0)
            return std::nullopt;
    }
    const std::optional<pid_t> process =
        spawnProcess(executable, arguments, writingEnds[0].number(), writingEnds[1].number());
    if (!process)
        return std::nullopt;
    state->process = *process;
    state->exit = openExitDescriptor(*process);
    return ChildProcess(std::move(state));
}

ChildProcess::ChildProcess(std::unique_ptr<State> state) : state_(std::move(state)) {}
ChildProcess::ChildProcess(ChildProcess&&) noexcept = default;

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    std::swap(state_, other.state_);
    return *this;
}

ChildProcess::~ChildProcess() {
    if (!state_ || state_->hasEnded)
        return;
    // The pipes stay open and are emptied: closing them would end the program by SIGPIPE, leaving them full
    // would keep it from ending. The thread owns all it touches, so it may be overtaken by the end of this
    // process, whose children the system reaps.
    State* const state = state_.release();
    try {
        std::thread([state] {
            const std::unique_ptr<State> owned(state);
            owned->keepsOutput = false;
            owned->waitForExit(std::nullopt, std::nullopt);
        }).detach();
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // No thread to be had: what is left is given up on purpose, so that the pipes at least stay open. The
        // program stays unreaped until this process ends.
    }
}

bool ChildProcess::waitForExit(std::optional<Clock::time_point> deadline, std::optional<double> heldUpLimit) {
    return state_->waitForExit(deadline, heldUpLimit);
}

void ChildProcess::collectRest(Clock::time_point deadline) {
    for (Output& output : state_->outputs)
        output.takeTheRest();
    while (std::ranges::any_of(state_->outputs, &Output::isRead)) {
        state_->step(deadline, false);
        if (hasPassed(deadline))
            return;
    }
}

void ChildProcess::terminate() {
    if (!state_->hasEnded)
        ::kill(state_->process, SIGTERM);
}

void ChildProcess::discardOutput() {
    state_->keepsOutput = false;
    for (Output& output : state_->outputs)
        output.bytes = {};
}

std::int32_t ChildProcess::terminationStatus() const {
    return state_->status;
}

const std::string& ChildProcess::standardOutput() const {
    return state_->outputs[0].bytes;
}

const std::string& ChildProcess::standardError() const {
    return state_->outputs[1].bytes;
}

} // namespace tarnwell
