#pragma once

// Small files that are read at once, whatever lies under their names.

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <string>

namespace tarnwell {

/// What came of reading a file to its end.
struct WholeFile {
    enum class Outcome {
        missing,
        read,
        forbidden,   ///< not for this user to read
        unavailable, ///< cannot be told now, is no regular file, or too long
    };

    Outcome outcome = Outcome::unavailable;
    /// The system's error that makes it unavailable.
    int error = 0;
    std::string text = {};
    /// Of a file that was read, as it was before.
    struct stat status = {};

    /// Never waits for a pipe, nor opens what is known to be no regular file. Gives up on what is longer than
    /// `longest` bytes, as on an endless file. Links are followed.
    static WholeFile read(const std::filesystem::path& path, const FileCalls& calls = FileCalls::live(),
                          std::size_t longest = std::size_t{64} << 20);
};

} // namespace tarnwell
