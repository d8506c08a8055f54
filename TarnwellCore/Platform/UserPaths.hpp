#pragma once

// Where the user's things are, and what a path stands for once tildes and links are resolved.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwell {

/// The user's home folder, without a trailing "/".
std::filesystem::path homeDirectory();

/// The path with a leading "~" or "~user" replaced by that home folder; otherwise unchanged. An unknown
/// user leaves the path as it is.
std::string expandTilde(std::string_view path);

/// The absolute path with ".", ".." and symbolic links resolved as far as the path exists; what does not
/// exist is kept as text. Never fails, also for paths longer than PATH_MAX.
std::string resolveLinks(const std::filesystem::path& path);

/// The user's folder for application support files, where the platform names one.
std::optional<std::filesystem::path> applicationSupportDirectory();

} // namespace tarnwell
