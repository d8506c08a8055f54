#pragma once

// What a mounted file system calls itself, where the device manager does not know.

#include <string>

namespace tarnwell {

struct FileSystemIdentity {
    /// Empty when the file system has no name.
    std::string label;
    /// In lower case; empty when the kernel does not tell (before 6.9).
    std::string uuid;
};

/// The identity of the file system that holds this folder. Opens the folder for a moment.
FileSystemIdentity readIdentity(const std::string& path);

} // namespace tarnwell
