#pragma once

// Whether files share their blocks already.

#include <array>
#include <cstdint>
#include <optional>

namespace tarnwell {

/// Where all blocks of a file lie. Equal layouts mean that the files share all of them; layouts of different
/// file systems differ.
struct BlockLayout {
    std::array<std::uint64_t, 4> words{};

    auto operator<=>(const BlockLayout&) const = default;
};

/// The layout of an open file all of whose blocks are shared with something; nothing when some are its own,
/// or the file system cannot tell or cannot share. Cheap on file systems that cannot.
std::optional<BlockLayout> layoutOfSharedBlocks(int file);

} // namespace tarnwell
