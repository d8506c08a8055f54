#pragma once

// What a scan does with links, packages, exclusions, devices and depth.

#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>

namespace tarnwell {

struct ScanOptions {
    /// Descend into folders on another device than their parent.
    bool crossFilesystemBoundaries = false;
    /// Count a file with several links once.
    bool deduplicateHardlinks = true;
    /// Make nodes of what is inside packages; otherwise a package only carries its sums.
    bool descendIntoPackages = true;
    /// Absolute paths that are kept as leaves and not read. On macOS accents in them, and in the names below,
    /// may be composed or decomposed.
    std::set<std::string, std::less<>> excludedPaths;
    /// Entry names that are kept as leaves and not read.
    std::set<std::string, std::less<>> excludedNames;
    /// Leave hidden entries out altogether.
    bool excludeHidden = false;
    /// Exclude `systemExclusions()` as well; on Linux "/home" only while an automounter serves it.
    bool applySystemExclusions = true;
    /// The deepest level that gets nodes (the root is level 0); what lies deeper is measured into the
    /// folder at this level.
    std::int64_t maximumDepth = std::numeric_limits<std::int64_t>::max();
    /// Worker threads. When absent, chosen from the number of processors; up to 16 while the disk is waited
    /// for.
    std::optional<int> workerCount;
    /// Remember of files with several links, and of those that share blocks, what `FreedSpace` asks for: some
    /// 24 bytes a link, 16 a shared extent and 8 a file. Nothing else depends on it.
    bool keepsSharing = true;
    /// Least seconds between two progress reports.
    double progressInterval = 0.1;

    bool operator==(const ScanOptions&) const = default;

    /// The 19 paths that hold no data of the user's, or data that is counted under another path.
    static const std::set<std::string, std::less<>>& systemExclusions();
};

} // namespace tarnwell
