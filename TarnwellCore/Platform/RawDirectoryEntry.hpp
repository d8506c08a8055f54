#pragma once

// One entry of a folder as the kernel reports it, before anything is made of it.

#include <cstdint>
#include <limits>
#include <string_view>

namespace tarnwell {

struct HeldSpace;

/// Stands for a time that is not known: the most negative finite double.
inline constexpr double missingFileTime = std::numeric_limits<double>::lowest();

/// Kinds of directory entries. The numbers are those of the BSD vnode types, on every system.
enum class VnodeType : std::uint32_t {
    none = 0,
    regular = 1,
    directory = 2,
    blockDevice = 3,
    characterDevice = 4,
    symbolicLink = 5,
    socket = 6,
    fifo = 7,
    bad = 8,
};

/// Bits of `RawDirectoryEntry::finderFlags` (the BSD flags word).
inline constexpr std::uint32_t hiddenFileFlag = 0x8000;
/// A folder on macOS that leads to another volume, of which it is meant to be part.
inline constexpr std::uint32_t firmlinkFileFlag = 0x0080'0000;
inline constexpr std::uint32_t datalessFileFlag = 0x4000'0000;
/// Ours, never taken from a system: on this folder a file system gets mounted as soon as somebody opens it.
inline constexpr std::uint32_t automountFileFlag = 0x8000'0000;

/// Bits of `RawDirectoryEntry::extFlags` (APFS names them EF_MAY_SHARE_BLOCKS and EF_SHARES_ALL_BLOCKS).
inline constexpr std::uint32_t mayShareBlocksFlag = 0x01;
inline constexpr std::uint32_t sharesAllBlocksFlag = 0x40;

/// A value without behaviour. What the file system did not report stays 0, times stay `missingFileTime`.
struct RawDirectoryEntry {
    /// Raw bytes. They belong to the reader that delivered the entry and last until its next read.
    std::string_view name;
    VnodeType objectType = VnodeType::none;
    std::int32_t deviceID = 0;
    std::uint64_t fileID = 0;
    std::uint32_t linkCount = 0;
    /// Bytes.
    std::int64_t logicalSize = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t privateSize = 0;
    std::uint32_t extFlags = 0;
    /// Whether `privateSize` holds a figure of the file system.
    bool reportsPrivateSize = false;
    /// Whether something is mounted on this folder though `deviceID` and the rest are those of the folder
    /// that is covered.
    bool isCovered = false;
    /// Seconds since 2001-01-01 00:00:00 UTC.
    double modificationSeconds = missingFileTime;
    double accessSeconds = missingFileTime;
    std::uint32_t finderFlags = 0;
    /// The errno with which this entry could not be read; 0 when it was.
    std::uint32_t errorCode = 0;
    /// What the file shares of the disk, when it does and the reader was asked to keep it; else null. Belongs
    /// to the reader, as the name does.
    const HeldSpace* held = nullptr;
};

} // namespace tarnwell
