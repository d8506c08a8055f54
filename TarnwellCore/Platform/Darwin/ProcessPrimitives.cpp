#include "TarnwellCore/Platform/ProcessPrimitives.hpp"

#include <crt_externs.h>
#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

#include <array>

namespace tarnwell {

std::optional<std::pair<int, int>> openPipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0)
        return std::nullopt;
    // Our own programs get no descriptor anyway; this is for those that the rest of the process starts.
    for (const int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    return std::pair(ends[0], ends[1]);
}

int openExitDescriptor(pid_t process) {
    const int queue = ::kqueue();
    if (queue < 0)
        return -1;
    ::fcntl(queue, F_SETFD, FD_CLOEXEC);
    struct kevent change = {};
    EV_SET(&change, static_cast<uintptr_t>(process), EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT, 0, nullptr);
    if (::kevent(queue, &change, 1, nullptr, 0, nullptr) != 0) {
        // Mostly a program that has ended already.
        ::close(queue);
        return -1;
    }
    return queue;
}

bool withholdDescriptors(posix_spawn_file_actions_t&, short& flags) {
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
    return true;
}

char** processEnvironment() {
    return *_NSGetEnviron();
}

} // namespace tarnwell
