#include "TarnwellCore/Platform/RunningPrograms.hpp"

#include "TarnwellCore/Platform/PathNesting.hpp"

#include <libproc.h>
#include <unistd.h>

#include <array>
#include <string_view>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

std::vector<pid_t> allProcesses() {
    std::vector<pid_t> processes;
    for (std::size_t room = 1024; room <= std::size_t{1} << 20; room *= 2) {
        processes.assign(room, 0);
        const int count = ::proc_listallpids(processes.data(), static_cast<int>(room * sizeof(pid_t)));
        processes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        if (processes.size() < room) // all have found room
            break;
    }
    return processes;
}

} // namespace

std::vector<RunningProgram> programsRunningFrom(const fs::path& place) {
    std::vector<RunningProgram> programs;
    if (place.empty())
        return programs;
    for (const pid_t process : allProcesses()) {
        std::array<char, PROC_PIDPATHINFO_MAXSIZE> path;
        const int length = process == ::getpid() ? 0
                                                 : ::proc_pidpath(process, path.data(),
                                                                  static_cast<std::uint32_t>(path.size()));
        if (length <= 0)
            continue;
        const std::string_view file(path.data(), static_cast<std::size_t>(length));
        if (isAtOrBelow(file, place.native()))
            programs.push_back({process, fs::path(file)});
    }
    return programs;
}

} // namespace tarnwell
