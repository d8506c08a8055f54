#include "TarnwellCore/Platform/ProcessPrimitives.hpp"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace tarnwell {

std::optional<std::pair<int, int>> openPipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return std::nullopt;
    return std::pair(ends[0], ends[1]);
}

int openExitDescriptor(pid_t process) {
    // By number, since the C library's wrapper is younger than the kernel's call (5.3).
    return static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
}

bool withholdDescriptors(posix_spawn_file_actions_t& actions, short&) {
    return ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) == 0;
}

char** processEnvironment() {
    return environ;
}

} // namespace tarnwell
