#include "TarnwellCore/Platform/OwnProgram.hpp"

#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

std::optional<fs::path> ownProgram() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    // Of a file that was replaced the kernel gives the old name and " (deleted)".
    if (error || !program.is_absolute() || !fs::is_regular_file(program, error))
        return std::nullopt;
    return program;
}

} // namespace tarnwell
