#pragma once

// What a scan keeps of a file that has several links or shares blocks, beside its sizes: `FreedSpace` tells
// from it what goes free when several files go together.

#include "TarnwellCore/Platform/HeldSpace.hpp"

#include <cstddef>
#include <cstdint>
#include <span>

namespace tarnwell {

/// Which file a link is one of.
struct FileLinks {
    std::uint64_t inode = 0;
    std::int32_t device = 0;
    /// How many the file had when it was read, wherever they lie. 0: not kept, as for every file with one
    /// link.
    std::uint32_t count = 0;
};

struct KeptSharing {
    FileLinks links = {};
    /// As in HeldSpace. Without `hasHeld` there is nothing but the allocated bytes.
    bool hasHeld = false;
    std::uint8_t traits = 0;
    std::uint32_t fileSystem = 0;
    std::uint32_t references = 0;
    std::int64_t exclusive = 0;
    /// Belongs to the tree.
    std::span<const SharedExtent> extents = {};
};

/// What a node is made with.
struct SharingAttributes {
    FileLinks links = {};
    const HeldSpace* held = nullptr;

    /// More extents than that are not kept: the file then counts as one of which they are not known.
    static constexpr std::size_t largestExtentCount = (std::size_t{1} << 24) - 1;

    /// Bytes that it takes in front of a node; a multiple of 8.
    std::size_t length() const {
        std::size_t bytes = links.count > 0 ? sizeof(FileLinks) : 0;
        if (held != nullptr)
            bytes += 8 + figuresLength(held->traits) + extents().size() * sizeof(SharedExtent);
        return bytes;
    }
    std::span<const SharedExtent> extents() const {
        return held == nullptr || held->extents.size() > largestExtentCount ? std::span<const SharedExtent>()
                                                                            : std::span(held->extents);
    }
    static constexpr std::size_t figuresLength(std::uint8_t traits) {
        return ((traits & HeldSpace::knowsExclusive) != 0 ? 8 : 0) +
               ((traits & HeldSpace::cloneGroup) != 0 ? 8 : 0);
    }
};

} // namespace tarnwell
