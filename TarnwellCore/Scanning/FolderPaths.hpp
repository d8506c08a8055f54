#pragma once

// The paths of folders that a scan came across. While it runs they are kept as references, which share what
// their paths have in common: the paths of a deep chain are as long, together, as the square of its depth.

#include "TarnwellCore/Scanning/FolderHandle.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace tarnwell {

/// How many paths a list takes, and of how many bytes together: three times those of so many ordinary ones.
struct PathListLimit {
    std::size_t paths = 100'000;
    std::size_t bytes = std::size_t{32} << 20;
};

/// The full paths of the folders, which are all of one scan, in byte order; where they are more than the
/// limit allows, the first of them. No other path is ever made, and the time is that of sorting names.
std::vector<std::string> pathsInOrder(std::span<const FolderRef> folders, const PathListLimit& limit = {});

} // namespace tarnwell
