#pragma once

// Opening a file that was measured before, and nothing else: whatever was put in its place meanwhile, such as
// a link, a FIFO or a device, is neither followed nor waited for nor read.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstdint>
#include <expected>
#include <string>

namespace tarnwell {

/// Tells one state of a file from every other: equal versions mean the same file, not written in between.
struct FileVersion {
    std::int32_t device = 0;
    std::uint64_t inode = 0;
    /// Bytes.
    std::int64_t size = 0;
    /// When its contents, and when anything about it, changed last: nanoseconds since 1970.
    std::int64_t modified = 0;
    std::int64_t changed = 0;

    bool operator==(const FileVersion&) const = default;

    bool isSameFile(const FileVersion& other) const { return device == other.device && inode == other.inode; }
};

struct FileMeasurement {
    VnodeType kind = VnodeType::none;
    /// A placeholder whose contents would have to be fetched first.
    bool isDataless = false;
    std::uint32_t linkCount = 0;
    /// Bytes.
    std::int64_t allocatedSize = 0;
    FileVersion version;
};

/// Why a measured file cannot be used any more.
struct FileFault {
    enum class Kind : std::uint8_t {
        vanished, ///< nothing is there
        replaced, ///< something else is
        changed,  ///< it was written to, or renamed, or its attributes were set
        failed,   ///< the system refused, with `error`
    };
    Kind kind;
    /// An errno; 0 when the system had no complaint.
    int error = 0;

    /// What an errno of opening a file, or a folder on the way to it, means.
    static FileFault of(int error);
    /// For the user.
    std::string description() const;

    bool operator==(const FileFault&) const = default;
};

/// What is at that name in the folder, without opening it, following a link or triggering an automount.
std::expected<FileMeasurement, FileFault> measureFile(int folder, const char* name);
/// The same of an open file.
std::expected<FileMeasurement, FileFault> measureFile(int file);

/// Opens a regular file with contents at that name for reading, if it still is the version given. Reading
/// leaves its time of access alone where the system lets this user ask for that. The descriptor is the
/// caller's.
std::expected<int, FileFault> openMeasuredFile(int folder, const char* name, const FileVersion& version);

/// Nothing when the open file still is that version: what was read from it in between belongs together.
std::expected<void, FileFault> requireVersion(int file, const FileVersion& version);

namespace MeasuredFileDetail {

/// Opens what is at that name for reading, which may not be what was measured any more: that is for the
/// caller to see. Systems that can look before they open do so. The descriptor is the caller's.
std::expected<int, FileFault> openForReading(int folder, const char* name, const FileVersion& version);

/// Nothing when the measurement is of that version.
std::expected<void, FileFault> compared(const FileMeasurement& found, const FileVersion& version);

} // namespace MeasuredFileDetail
} // namespace tarnwell
