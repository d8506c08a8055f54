#include "TarnwellCore/Platform/OwnProgram.hpp"

#include <mach-o/dyld.h>

#include <cstdint>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

std::optional<fs::path> ownProgram() {
    std::uint32_t size = 0;
    ::_NSGetExecutablePath(nullptr, &size); // says how much room it takes
    std::string path(size, '\0');
    if (size == 0 || ::_NSGetExecutablePath(path.data(), &size) != 0)
        return std::nullopt;
    std::error_code error;
    const fs::path program = fs::absolute(path.c_str(), error).lexically_normal();
    if (error || !fs::is_regular_file(program, error))
        return std::nullopt;
    return program;
}

} // namespace tarnwell
