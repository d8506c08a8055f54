#pragma once

// What the system knows about a single path.

#include "TarnwellCore/Platform/Date.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tarnwell {

/// Identifies a file across its links: entries with equal keys are links to one file.
struct INodeKey {
    std::int32_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(const INodeKey&) const = default;
};

struct PathMetadata {
    bool isDirectory = false;
    bool isSymlink = false;
    /// Its contents are with a cloud service, and are fetched when it is opened.
    bool isDataless = false;
    /// Bytes; both 0 where one of them fits no 64 bits.
    std::int64_t logicalSize = 0;
    std::int64_t allocatedSize = 0;
    std::int32_t deviceID = 0;
    std::uint64_t fileID = 0;
    std::uint16_t linkCount = 0;
    std::optional<Date> modificationDate;

    /// Reads the path without following a link at its end; nothing when that fails. Works for paths longer
    /// than PATH_MAX.
    static std::optional<PathMetadata> lstat(const std::string& path);
};

} // namespace tarnwell

template <>
struct std::hash<tarnwell::INodeKey> {
    std::size_t operator()(const tarnwell::INodeKey& key) const noexcept {
        // Inode numbers of one device run in sequence: multiply, so that neighbours land far apart.
        const std::uint64_t mixed =
            (key.inode ^ (static_cast<std::uint64_t>(static_cast<std::uint32_t>(key.device)) << 32)) *
            0x9E3779B97F4A7C15u;
        return static_cast<std::size_t>(mixed ^ (mixed >> 32));
    }
};
