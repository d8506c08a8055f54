#pragma once

// Where the program that runs lies, for whoever has to have it started again.

#include <filesystem>
#include <optional>

namespace tarnwell {

/// Its absolute path. A link that it was started by is kept where the system knows of it (macOS), so that the
/// path outlives a new version at another place. Nothing when the system does not tell, or the file is gone.
std::optional<std::filesystem::path> ownProgram();

} // namespace tarnwell
