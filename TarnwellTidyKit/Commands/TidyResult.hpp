#pragma once

// What a command leaves for the entry point to do.

#include <cstdint>
#include <string>

namespace tarnwell {

struct TidyResult {
    static constexpr std::int32_t failed = 1;
    static constexpr std::int32_t usageError = 2;
    /// Called off with Control-C.
    static constexpr std::int32_t interrupted = 130;

    /// The process's exit status: 0 all went well, 1 something failed (the texts say what), 2 usage error,
    /// 130 interrupted.
    std::int32_t exitCode = 0;
    /// Text for standard output, written verbatim.
    std::string standardOutput = {};
    /// Text for standard error, written verbatim.
    std::string standardError = {};

    bool operator==(const TidyResult&) const = default;
};

} // namespace tarnwell
