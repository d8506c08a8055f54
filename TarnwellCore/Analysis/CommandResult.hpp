#pragma once

// What running a tool comes back with.

#include <cstdint>
#include <string>

namespace tarnwell {

struct CommandResult {
    /// The tool's exit status, or the number of the signal that ended it, or `Shell::timedOutExitCode`.
    std::int32_t exitCode = 0;
    /// Valid UTF-8: what the tool wrote that was not is U+FFFD.
    std::string standardOutput;
    std::string standardError;

    bool succeeded() const { return exitCode == 0; }
    bool operator==(const CommandResult&) const = default;
};

} // namespace tarnwell
