#pragma once

// What lies in a folder, by name, for housekeeping. (Scans read folders in bulk: BulkDirectoryReading.hpp.)

#include <filesystem>
#include <string>
#include <vector>

namespace tarnwell {

/// The names in a folder, hidden ones included, in the system's order; as far as it can be read. The empty
/// path is the current folder.
std::vector<std::string> entryNames(const std::filesystem::path& folder);

} // namespace tarnwell
