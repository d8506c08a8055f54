#pragma once

// The totals of one folder, from a scan that keeps no tree.

#include <cstdint>
#include <string>

namespace tarnwell {

/// Sizes in bytes. All zeros with `isMissing` when the measured path did not exist.
struct DirectoryMeasurement {
    std::int64_t logicalSize = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;
    std::int64_t fileCount = 0;
    std::int64_t directoryCount = 0;
    bool isMissing = false;

    bool operator==(const DirectoryMeasurement&) const = default;
};

/// The measurement as a JSON object whose keys are the field names.
std::string jsonText(const DirectoryMeasurement& measurement);

} // namespace tarnwell
