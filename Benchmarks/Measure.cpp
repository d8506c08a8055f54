// measure-run: runs a command with its standard output thrown away and prints what it took: wall seconds,
// processor seconds, peak resident kilobytes. Plain C calls keep this process small, because the kernel
// counts the memory of the process that starts a command into the command's peak.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

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

} // namespace

int main(int count, char** values) {
    if (count < 2) {
        std::fputs("usage: measure-run COMMAND [ARGUMENTS...]\n", stderr);
        return 2;
    }
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
