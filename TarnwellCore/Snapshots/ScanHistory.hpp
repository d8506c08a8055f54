#pragma once

// The scans of the past, for charts and forecasts: "scan-history.json" beside the folder of snapshots, shared
// with every other program of the product.
//
// The file is a JSON object: "version" 1 and "scans", a list of objects, one a line, the newest at the end:
//   {"finishedAt": "2024-05-01T09:30:00Z", "rootPath": "/home/alice", "duration": 1.5, "totalSize": 1,
//    "totalAllocatedSize": 1, "totalReclaimableSize": 1, "fileCount": 1, "directoryCount": 1,
//    "unreadableFolderCount": 0, "volumeCapacity": 1, "volumeFreeBytes": 1, "categories": {"3": 1}}
// The two members of the volume and "categories" (allocated bytes by the category's raw value) may be
// missing; a missing reclaimable total is the allocated one, another missing figure 0. Where a root is not
// UTF-8, it is written as EscapedPath.hpp says, and "escapedPaths" is true. Members, scans and values that
// this program does not know stay as they are.

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Snapshots/ScanRecord.hpp"
#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Safe from any thread and with any number of processes on one file: notes are taken under a lock
/// (FileLock.hpp), readers see the file before or after one. Nothing is cached. Errors are std::system_error
/// with the path and the system's text.
class ScanHistory {
public:
    /// The scans that are kept.
    static constexpr std::size_t capacity = 1000;

    /// The default file unless another is given; it need not exist, nor its folder.
    explicit ScanHistory(std::optional<std::filesystem::path> file = std::nullopt,
                         FileCalls calls = FileCalls::live());

    static std::filesystem::path defaultFile();

    const std::filesystem::path& file() const { return file_; }

    /// Adds a scan and drops the oldest beyond the capacity; returns when that would survive a loss of power.
    /// A file that is no history, or that this user may not read, is kept as "<file>.damaged" before a new
    /// one takes its place; one that cannot be read for another reason is not touched, and the call throws.
    /// Whatever it throws, the file is as it was. Throws std::range_error for a date outside the years 1 to
    /// 9999.
    void note(const ScanRecord& record) const;

    /// Every scan, newest first; of the same second the one that was noted last. What is damaged holds none.
    /// Throws when the file cannot be read.
    std::vector<ScanRecord> list() const;

    /// The scans of this root, oldest first, for a chart. Roots are compared byte by byte.
    std::vector<ScanRecord> series(std::string_view rootPath) const;

private:
    const std::filesystem::path file_;
    const FileCalls calls_;
};

/// The record of the very scan that a snapshot was captured from: the same root and totals, within an hour.
/// Null when there is none.
const ScanRecord* recordOf(const ScanSnapshot& snapshot, std::span<const ScanRecord> records);

} // namespace tarnwell
