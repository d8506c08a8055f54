#pragma once

#include <filesystem>

namespace tarnwell {

/// Where the user's programs keep their settings: `$XDG_CONFIG_HOME`, or ".config" in the home.
std::filesystem::path configurationFolder();

} // namespace tarnwell
