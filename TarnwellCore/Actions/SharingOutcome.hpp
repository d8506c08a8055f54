#pragma once

// What became of one file that was to share the blocks of another one.

#include <cstdint>
#include <filesystem>
#include <string>
#include <variant>

namespace tarnwell {

struct SharingRefusal {
    enum class Kind : std::uint8_t {
        unsupported,     ///< the file system cannot share blocks, or not those of this file
        otherFileSystem, ///< it lies on another one than the first of the group
        notTheSame,      ///< it, or the first of the group, is not what was found any more
        immutable,
        openForWriting,
        hasOtherLinks, ///< where sharing replaces the file (macOS): its links would be left behind
        cancelled,
    };
    Kind kind;

    /// The reason for the user.
    std::string explanation() const;

    bool operator==(const SharingRefusal&) const = default;
};

/// All blocks of the file are shared with the first of the group now.
struct SharingDone {
    std::filesystem::path url;
    /// What the file system got back; 0 where the blocks were shared before.
    std::int64_t bytesFreed = 0;
    bool operator==(const SharingDone&) const = default;
};

struct SharingRefused {
    std::filesystem::path url;
    SharingRefusal refusal;
    /// Of a part of the file that was shared before it came to that: with what is the same nothing is lost.
    std::int64_t bytesFreed = 0;
    bool operator==(const SharingRefused&) const = default;
};

struct SharingFailed {
    std::filesystem::path url;
    /// The system's words.
    std::string message;
    std::int64_t bytesFreed = 0;
    bool operator==(const SharingFailed&) const = default;
};

using SharingOutcome = std::variant<SharingDone, SharingRefused, SharingFailed>;

/// The file that an outcome is about, and what was freed.
const std::filesystem::path& urlOf(const SharingOutcome& outcome);
std::int64_t bytesFreedBy(const SharingOutcome& outcome);

} // namespace tarnwell
