#pragma once

// Which programs are running, by the files that they were started from.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct RunningProgram {
    std::int64_t process = 0;
    /// Its file as the system names it, links resolved; for a script, the script.
    std::filesystem::path file;

    bool operator==(const RunningProgram&) const = default;
};

/// The running programs whose file is this one or lies in this folder, by the system's own path of it (links
/// resolved); of other users as far as the system tells. This process is left out. Empty when nothing can be
/// told.
std::vector<RunningProgram> programsRunningFrom(const std::filesystem::path& place);

} // namespace tarnwell
