#pragma once

// What happened between two snapshots, in a few sentences' worth of data.

#include "TarnwellCore/Snapshots/ScanRecord.hpp"
#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"
#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// A plain value. Sizes are allocated bytes; paths are relative to the root, as in the snapshots.
struct SnapshotDigest {
    /// The most causes, new folders and gone ones that are told.
    static constexpr std::size_t mostItems = 5;

    /// A file or folder that changed. No cause lies in another.
    struct Cause {
        std::string path;
        SnapshotDelta::Change::Kind kind = SnapshotDelta::Change::Kind::grew;
        std::int64_t before = 0;
        std::int64_t after = 0;
        std::int64_t change = 0;
        bool isDirectory = false;

        bool operator==(const Cause&) const = default;
    };
    struct Folder {
        std::string path;
        std::int64_t size = 0;

        bool operator==(const Folder&) const = default;
    };
    struct CategoryChange {
        FileCategory category = FileCategory::other;
        std::int64_t before = 0;
        std::int64_t after = 0;

        bool operator==(const CategoryChange&) const = default;
    };

    Date from;
    Date to;
    std::string rootPath;
    /// Otherwise paths are compared all the same, and mean different places.
    bool rootsMatch = false;
    std::int64_t sizeBefore = 0;
    std::int64_t sizeAfter = 0;
    /// `sizeAfter` − `sizeBefore`, or the nearest 64-bit number.
    std::int64_t netChange = 0;
    /// The largest changes, largest first. A folder stands for what it holds: always when it came or went as
    /// a whole; otherwise unless something in it changed nearly as much (80 %) as the folder, or more because
    /// others made up for it; then what is in it is told instead. While there is room for more causes, a
    /// folder gives way to two or three parts that together make up 80 % of its change.
    std::vector<Cause> causes;
    /// Folders that came, or went, with all they hold, largest first; none in another.
    std::vector<Folder> newFolders;
    std::vector<Folder> goneFolders;
    /// Largest change first, unchanged ones left out; empty unless both were counted.
    std::vector<CategoryChange> categories;
    /// The room on the root's volume then and now; nothing where nobody asked.
    std::optional<VolumeSpace> spaceBefore;
    std::optional<VolumeSpace> spaceAfter;

    bool operator==(const SnapshotDigest&) const = default;

    /// Tells the changes of at least `smallest` bytes. The records of the two scans (ScanHistory.hpp,
    /// `recordOf`) know categories and volumes; null where there is none. Never fails; time as of
    /// `SnapshotDelta::compare`.
    static SnapshotDigest of(const ScanSnapshot& before, const ScanSnapshot& after,
                             const ScanRecord* recordBefore = nullptr,
                             const ScanRecord* recordAfter = nullptr, std::int64_t smallest = 1'000'000);
};

} // namespace tarnwell
