#pragma once

// What grew, shrank, came and went between two snapshots.

#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A plain value. Sizes in bytes.
struct SnapshotDelta {
    struct Change {
        enum class Kind : std::uint8_t {
            grew,
            shrank,
            added,
            removed,
            belowThreshold, ///< listed on one side only, because on the other it was too small to be kept
        };

        /// Relative to the root, as in the snapshots.
        std::string path;
        Kind kind = Kind::grew;
        /// The size in the chosen mode; 0 where it is not listed.
        std::int64_t before = 0;
        std::int64_t after = 0;
        /// `after` − `before`, or the nearest 64-bit number.
        std::int64_t delta = 0;
        /// Whether a folder above changed in the same direction, by at least 80 % as much: the change is then
        /// mostly told by the folder's.
        bool isNested = false;

        bool operator==(const Change&) const = default;
    };

    ScanSnapshot before;
    ScanSnapshot after;
    /// Largest magnitude first, equal ones by path.
    std::vector<Change> changes;
    /// The difference of the snapshots' totals in the chosen mode, not the sum of the changes; the nearest
    /// 64-bit number.
    std::int64_t totalChange = 0;
    /// Whether both were captured from the same root, by its exact text.
    bool rootsMatch = false;

    /// Compares two snapshots, in time linear in their entries (and n log n in the changes). Lists the
    /// changes of at least `threshold` bytes; one of 0 lists every item, an unchanged one as shrunk. Of
    /// entries with the same path the first counts, which capture puts before smaller ones in one folder.
    ///
    /// An item that one snapshot lacks had become (or was) too small for it, rather than removed (or added),
    /// when that snapshot had a floor and the folder around the item holds the same number of files in both.
    static SnapshotDelta compare(ScanSnapshot before, ScanSnapshot after, std::int64_t threshold,
                                 SizeMode sizeMode);
};

/// "grew", "shrank", "added", "removed" or "belowThreshold".
std::string_view rawValue(SnapshotDelta::Change::Kind kind);

} // namespace tarnwell
