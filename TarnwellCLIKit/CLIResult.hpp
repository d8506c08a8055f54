#pragma once

// What a command leaves for the entry point to do.

#include <cstdint>
#include <string>

namespace tarnwell {

struct CLIResult {
    /// The process's exit status: 0 success, 1 runtime or scan failure, 2 usage error.
    std::int32_t exitCode = 0;
    /// Text for standard output, written verbatim.
    std::string standardOutput;
    /// Text for standard error, written verbatim.
    std::string standardError;

    bool operator==(const CLIResult&) const = default;
};

} // namespace tarnwell
