// measure-run: runs a command with its standard output thrown away and prints what it took: wall seconds,
// processor seconds, peak resident kilobytes. Plain C calls keep this process small, because the kernel
// counts the memory of the process that starts a command into the command's peak.
//
// measure-run --fresh-pages: prints the microseconds that the first write to a page of memory takes. On
// virtual machines it may be ten times what it is on others, and then decides how programs that keep much
// compare with those that keep nothing.

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

double now() {
    timespec time;
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

int measureFreshPages() {
    constexpr std::size_t length = std::size_t{128} << 20;
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* const memory = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED || ::madvise(memory, length, MADV_NOHUGEPAGE) != 0)
        return 1;
    const double start = now();
    for (std::size_t offset = 0; offset < length; offset += page)
        static_cast<volatile char*>(memory)[offset] = 1;
    const std::size_t pages = length / page;
    std::printf("%.1f\n", (now() - start) * 1e6 / static_cast<double>(pages));
    return 0;
}

} // namespace

int main(int count, char** values) {
    if (count < 2) {
        std::fputs("usage: measure-run COMMAND [ARGUMENTS...]\n       measure-run --fresh-pages\n", stderr);
        return 2;
    }
    if (std::strcmp(values[1], "--fresh-pages") == 0)
        return measureFreshPages();
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const double start = now();
    pid_t process = 0;
    const int error = ::posix_spawnp(&process, values[1], &actions, nullptr, values + 1, environ);
    if (error != 0) {
        std::fprintf(stderr, "%s: %s\n", values[1], std::strerror(error));
        return 127;
    }
    int status = 0;
    rusage usage;
    if (::wait4(process, &status, 0, &usage) != process)
        return 1;
    std::printf("%.4f %.4f %ld\n", now() - start, seconds(usage.ru_utime) + seconds(usage.ru_stime),
                usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
