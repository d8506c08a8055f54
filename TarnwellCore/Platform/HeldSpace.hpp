#pragma once

// What a file keeps of the disk where files can share it: needed to tell what goes free when several files go
// together, which the sizes of each alone do not say.

#include <cstdint>
#include <vector>

namespace tarnwell {

/// Bytes that lie side by side on a disk and that more than one file may use. Where the file system counts
/// references block by block (XFS), the part that the file uses; where it counts whole extents (btrfs), the
/// extent as it lies on the disk, if that can be seen (`HeldSpace::wholeExtents`).
struct SharedExtent {
    /// The file system's own address: equal for all sharers, of no meaning on another file system.
    std::uint64_t start = 0;
    std::uint64_t length = 0;

    bool operator==(const SharedExtent&) const = default;
};

struct HeldSpace {
    /// The extents go free when all files that `extents` names them for are gone, and not before. Without it
    /// a part may stay although nobody uses it.
    static constexpr std::uint8_t wholeExtents = 1;
    /// Stored in another length than it is read: how many bytes lie on the disk is not known.
    static constexpr std::uint8_t encoded = 2;
    /// `exclusive` is what the file system says, not what is left of the allocated bytes.
    static constexpr std::uint8_t knowsExclusive = 4;
    /// `extents` holds one record that is no place: `start` is the clones' common identifier, `length` the
    /// bytes that this file shares, and `references` how many files have that identifier.
    static constexpr std::uint8_t cloneGroup = 8;
    /// The contents lie in the file system's own records and take no blocks, whatever the allocated size
    /// says.
    static constexpr std::uint8_t inlineData = 16;

    std::uint8_t traits = 0;
    /// Which file system the extents lie on. Different devices may name the same one.
    std::uint32_t fileSystem = 0;
    std::uint32_t references = 0;
    /// Bytes on the disk that go free with this file.
    std::int64_t exclusive = 0;
    /// Of those that are shared, each once.
    std::vector<SharedExtent> extents = {};
};

} // namespace tarnwell
