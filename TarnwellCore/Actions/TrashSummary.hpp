#pragma once

// What the Trash holds, over all its folders.

#include <cstdint>
#include <filesystem>
#include <vector>

namespace tarnwell {

struct TrashSummary {
    /// The Trash folders that were measured.
    std::vector<std::filesystem::path> locations;
    /// The entries directly inside them.
    std::int64_t itemCount = 0;
    /// Bytes, summed over the locations.
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;
    /// Folders of volumes that gave no answer in time: what they hold, if anything, is not in the sums.
    std::vector<std::filesystem::path> unanswered = {};

    bool operator==(const TrashSummary&) const = default;

    /// No locations, nothing inside.
    static const TrashSummary empty;
};

inline const TrashSummary TrashSummary::empty{};

} // namespace tarnwell
