#include "Tests/Faults/Linux/FaultyProgram.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;

namespace tarnwell::test {

namespace {

constexpr int reportNumber = 3;
constexpr int secondsToLive = 120;
constexpr std::size_t largestMemory = std::size_t{2} << 30;

/// The library of failing calls by a path that the loader can take: it parts its list at blanks and colons.
std::string faultyCalls() {
    std::string library = TARNWELL_FAULTY_CALLS;
    if (library.find_first_of(" :") == std::string::npos)
        return library;
    static const TemporaryFolder folder;
    const fs::path link = folder / "calls.so";
    fs::create_symlink(library, link);
    return link;
}

/// The sanitizer runtimes that this process uses must be in every list of libraries: the address sanitizer's
/// behind the library of failing calls, or it would take the allocations before they can fail.
std::string preloadedLibraries() {
    std::string first;
    std::string last;
    std::ifstream maps("/proc/self/maps");
    std::set<std::string> seen;
    for (std::string line; std::getline(maps, line);) {
        const std::size_t start = line.find('/');
        if (start == std::string::npos)
            continue;
        const std::string path = line.substr(start);
        if (path.find("/libtsan.so") != std::string::npos && seen.insert(path).second)
            first += path + ":";
        if (path.find("/libasan.so") != std::string::npos && seen.insert(path).second)
            last += ":" + path;
    }
    return first + faultyCalls() + last;
}

/// How sanitizers behave in the program, as the environment has it for them.
std::vector<std::string> sanitizerOptions() {
    const auto option = [](const std::string& name, const std::string& ours) {
        const char* given = std::getenv(name.c_str());
        return name + "=" + (given != nullptr ? given : "") + ours;
    };
    const std::string code = ":exitcode=" + std::to_string(sanitizerCode);
    return {
        // Whole call chains, to tell a leak of a library's from ours.
        option("ASAN_OPTIONS", code + ":verify_asan_link_order=0:fast_unwind_on_malloc=0"),
        option("LSAN_OPTIONS", ":suppressions='" TARNWELL_TESTS "/Faults/leaks.txt':print_suppressions=0"),
        option("UBSAN_OPTIONS", code),
        option("TSAN_OPTIONS", code),
    };
}

/// A file without a name.
class Scratch {
public:
    Scratch() : descriptor_(::memfd_create("outcome", MFD_CLOEXEC)) {}
    ~Scratch() { ::close(descriptor_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    int descriptor() const { return descriptor_; }
    std::string contents() const {
        std::string text(static_cast<std::size_t>(::lseek(descriptor_, 0, SEEK_END)), '\0');
        const ssize_t count = ::pread(descriptor_, text.data(), text.size(), 0);
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return text;
    }

private:
    int descriptor_;
};

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

void limit(__rlimit_resource resource, std::size_t amount) {
    const rlimit limits = {amount, amount};
    if (amount != 0)
        ::setrlimit(resource, &limits);
}

/// Waits for a process, not for ever; its exit code as in FaultyOutcome.
int exitCodeOf(pid_t process) {
    const int exit = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
    pollfd polled = {.fd = exit, .events = POLLIN, .revents = 0};
    if (exit >= 0 && ::poll(&polled, 1, secondsToLive * 1000) == 0)
        ::kill(process, SIGKILL);
    ::close(exit);
    int status = 0;
    ::waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

std::string Fault::text() const {
    return (count == 0 ? "all " + kind + " calls" : kind + " call " + std::to_string(call)) +
           (error == 0 ? std::string(" short") : std::string(": ") + ::strerrorname_np(error));
}

long FaultyOutcome::count(const std::string& name) const {
    const auto found = report.find(name);
    return found == report.end() ? 0 : found->second;
}

bool isSanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
    return __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
    return false;
#endif
}

bool isThorough() {
    const char* value = std::getenv("TARNWELL_THOROUGH");
    return value != nullptr && std::string_view(value) == "1";
}

void writeFile(const fs::path& file, std::string_view text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

void makeSparse(const fs::path& file, std::int64_t size) {
    const int descriptor = ::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    (void)!::ftruncate(descriptor, size);
    ::close(descriptor);
}

FaultyOutcome runWithFault(const Program& program, const std::optional<Fault>& fault) {
    static const std::string libraries = preloadedLibraries();
    constexpr std::string_view placeholder = "WORLD";
    std::vector<std::string> words = program.arguments;
    for (std::string& word : words)
        if (word.starts_with(placeholder))
            word.replace(0, placeholder.size(), program.world);
    std::vector<std::string> environment = sanitizerOptions();
    environment.insert(environment.end(), {"PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                           "TARNWELL_FAULT_REPORT=" + std::to_string(reportNumber)});
    if (program.isWatched)
        environment.push_back("LD_PRELOAD=" + libraries);
    if (fault)
        environment.insert(environment.end(), {"TARNWELL_FAULT_KIND=" + fault->kind,
                                               "TARNWELL_FAULT_CALL=" + std::to_string(fault->call),
                                               "TARNWELL_FAULT_COUNT=" + std::to_string(fault->count),
                                               "TARNWELL_FAULT_ERROR=" + std::to_string(fault->error)});
    const std::string world = program.world;
    if (!world.empty())
        environment.insert(environment.end(),
                           {"HOME=" + world, "XDG_DATA_HOME=" + world + "/data",
                            "XDG_CONFIG_HOME=" + world + "/config", "XDG_RUNTIME_DIR=" + world + "/run",
                            "GIO_USE_VFS=local", "GIO_USE_VOLUME_MONITOR=unix"});
    const std::vector<char*> arguments = pointersTo(words);
    const std::vector<char*> variables = pointersTo(environment);

    const Scratch output;
    const Scratch error;
    const Scratch report;
    const pid_t process = ::fork();
    if (process == 0) { // only what is safe after a fork among threads
        ::dup2(output.descriptor(), STDOUT_FILENO);
        ::dup2(error.descriptor(), STDERR_FILENO);
        const int lifted = ::fcntl(report.descriptor(), F_DUPFD_CLOEXEC, 100);
        ::syscall(SYS_close_range, 3, lifted - 1, 0);
        ::syscall(SYS_close_range, lifted + 1, ~0U, 0);
        if (program.isWatched)
            ::dup2(lifted, reportNumber);
        limit(RLIMIT_NOFILE, program.descriptorLimit);
        limit(RLIMIT_STACK, program.stackLimit);
        limit(RLIMIT_AS, isSanitized() ? 0 : largestMemory); // sanitizers take terabytes of addresses
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const rlimit noCore = {0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        ::execve(arguments[0], arguments.data(), variables.data());
        ::_exit(126);
    }
    FaultyOutcome outcome;
    outcome.exitCode = exitCodeOf(process);
    outcome.output = output.contents();
    outcome.error = error.contents();
    std::istringstream lines(report.contents());
    std::string name;
    for (long count = 0; lines >> name >> count;)
        outcome.report[name] = count;
    return outcome;
}

const std::string& whyNotFaulty() {
    static const std::string reason = []() -> std::string {
#ifdef __SANITIZE_THREAD__
        return "the thread sanitizer stands in front of the same calls";
#endif
        const FaultyOutcome outcome = runWithFault({.arguments = {TARNWELL_TOOL, "--help"}});
        if (outcome.exitCode != 0)
            return "a library cannot be preloaded here: " + outcome.error;
        return std::string(outcome.report.empty() ? "the preloaded library says nothing here" : "");
    }();
    return reason;
}

namespace {

constexpr std::array usualErrors = {EACCES, ENOENT, EIO, EMFILE, ENOMEM, ENOSPC, ESTALE, ELOOP, ENAMETOOLONG};

bool isIn(std::initializer_list<std::string_view> kinds, std::string_view kind) {
    return std::ranges::find(kinds, kind) != kinds.end();
}

bool movesBytes(std::string_view kind) {
    return isIn({"read", "write", "getdents"}, kind);
}

/// Calls that the system may interrupt.
bool mayBeInterrupted(std::string_view kind) {
    return isIn(
        {"open", "openat2", "close", "read", "write", "sync", "getdents", "lock", "ioctl", "poll", "wait"},
        kind);
}

std::vector<int> errorsFor(std::string_view kind, long call, bool all) {
    if (kind == "memory")
        return {ENOMEM};
    std::vector<int> errors(usualErrors.begin(), usualErrors.end());
    if (!all) {
        // Sanitized programs take their time.
        const std::size_t count = isSanitized() ? 1 : 3;
        const auto first =
            static_cast<std::ptrdiff_t>(static_cast<std::size_t>(call) * count % errors.size());
        std::ranges::rotate(errors, errors.begin() + first);
        errors.resize(count);
    }
    if (isIn({"statx", "openat2", "getdents", "ioctl", "lock", "pidfd"}, kind))
        errors.push_back(ENOSYS);
    if (isIn({"rename", "link", "openat2"}, kind))
        errors.push_back(EXDEV);
    if (isIn({"thread", "spawn"}, kind))
        errors.push_back(EAGAIN);
    return errors;
}

std::vector<Fault> faultsFor(const FaultyOutcome& undisturbed) {
    std::vector<Fault> faults;
    for (const auto& [kind, calls] : undisturbed.report) {
        if (isIn({"failed", "descriptors", "devices"}, kind) || calls == 0)
            continue;
        const long most = isSanitized() ? 15 : 40; // of allocations, of which there are hundreds
        const long step = kind == "memory" && !isThorough() ? 1 + calls / most : 1;
        for (long call = 1; call <= calls; call += step) {
            for (const int error : errorsFor(kind, call, isThorough()))
                faults.push_back({.kind = kind, .call = call, .error = error});
            if (mayBeInterrupted(kind))
                faults.push_back({.kind = kind, .call = call, .error = EINTR});
            if (movesBytes(kind))
                faults.push_back({.kind = kind, .call = call, .error = 0});
        }
        for (const int error : errorsFor(kind, 1, true))
            faults.push_back({.kind = kind, .count = 0, .error = error});
        if (movesBytes(kind))
            faults.push_back({.kind = kind, .count = 0, .error = 0});
    }
    return faults;
}

/// What is wrong with a run, whatever the program.
std::string generalComplaint(const FaultScenario& scenario, const FaultyOutcome& outcome,
                             const FaultyOutcome& undisturbed, const Fault& fault) {
    // Without any memory not even a message can be made.
    const bool mayEnd = fault.kind == "memory" && (fault.count == 0 || scenario.mayEndWithoutMemory);
    if (mayEnd && outcome.exitCode == 128 + SIGABRT)
        return {};
    if (outcome.exitCode != 0 && outcome.exitCode != 1)
        return "exit code " + std::to_string(outcome.exitCode);
    if (outcome.exitCode == 1 && scenario.failsSilently && !outcome.output.empty())
        return "a failure with output";
    if (outcome.exitCode == 1 && scenario.failsSilently && !outcome.error.ends_with('\n'))
        return "a failure without a message";
    if (outcome.count("descriptors") > undisturbed.count("descriptors"))
        return std::to_string(outcome.count("descriptors")) + " descriptors are left open";
    if (outcome.count("devices") != 0)
        return "a device was opened";
    // What an older kernel lacks has another way; but not for a folder that was read in part.
    const bool isLacking = fault.error == ENOSYS && fault.count == 0 &&
                           isIn({"openat2", "statx", "getdents", "pidfd"}, fault.kind);
    const bool isInterruption = fault.error == EINTR && mayBeInterrupted(fault.kind);
    const bool isHarmless = fault.error == 0 || (isInterruption && !scenario.mayGiveUpInterrupted) ||
                            isLacking || outcome.count("failed") == 0;
    if (isHarmless && (outcome.exitCode != undisturbed.exitCode ||
                       scenario.essence(outcome.output) != scenario.essence(undisturbed.output)))
        return "another result than without the fault";
    return {};
}

} // namespace

void expectToSurviveFaults(const FaultScenario& scenario) {
    const bool hasMemoryPlace = ::access("/dev/shm", W_OK) == 0;
    const TemporaryFolder folder(scenario.place.empty() && hasMemoryPlace ? "/dev/shm" : scenario.place);
    Program program = scenario.program;
    program.world = folder.makeFolder("original");
    scenario.prepare(program.world);
    const FaultyOutcome undisturbed = runWithFault(program);
    ASSERT_EQ(undisturbed.exitCode, 0) << undisturbed.error;
    const std::vector<Fault> faults = faultsFor(undisturbed);
    ASSERT_FALSE(faults.empty());
    std::mutex mutex;
    int complaintCount = 0; // guarded by mutex
    std::string complaints; // guarded by mutex
    std::atomic<std::size_t> next = 0;
    std::atomic<std::size_t> spoiled = 0;
    const auto work = [&](Program mine, int thread) {
        for (std::size_t index = next++; index < faults.size(); index = next++) {
            const Fault& fault = faults[index];
            if (scenario.changesWorld) {
                mine.world = folder / ("world" + std::to_string(thread));
                fs::remove_all(mine.world);
                fs::create_directory(mine.world);
                scenario.prepare(mine.world);
            }
            const FaultyOutcome outcome = runWithFault(mine, fault);
            spoiled += outcome.count("failed") > 0 ? 1 : 0;
            std::string complaint = generalComplaint(scenario, outcome, undisturbed, fault);
            if (complaint.empty())
                complaint = scenario.complaint({mine.world, outcome, undisturbed, fault});
            const std::lock_guard guard(mutex);
            if (!complaint.empty() && ++complaintCount <= 12)
                complaints += fault.text() + ": " + complaint + "\n  exit code " +
                              std::to_string(outcome.exitCode) +
                              ", output: " + outcome.output.substr(0, 400) +
                              "\n  error: " + outcome.error.substr(0, 1500) + "\n";
        }
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back(work, program, thread);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(complaintCount, 0) << complaints;
    // Threads take turns as they like, so a few calls may come a little less often than before.
    EXPECT_GT(spoiled * 10, faults.size() * 8) << "too few calls failed to prove anything";
    testing::Test::RecordProperty("runs", static_cast<int>(faults.size()));
}

} // namespace tarnwell::test
