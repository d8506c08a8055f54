#pragma once

// Moving an item under its own name or none: never over something, and only when it is still the item that is
// meant.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstdint>
#include <expected>
#include <optional>

namespace tarnwell {

/// What tells an item from any other that may take its name.
struct ItemIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    VnodeType type = VnodeType::none;
    /// When it was made, in nanoseconds since 1970, where the file system keeps that.
    std::optional<std::int64_t> birth = {};

    bool operator==(const ItemIdentity&) const = default;

    /// Whether both are one item, as far as that can be told. Numbers of devices change when a disk is
    /// mounted again: they decide only where no time of birth is known.
    bool mayBe(const ItemIdentity& other) const;
};

/// The identity of the item of this name in an open folder (or at a path, for AT_FDCWD), of a link its own.
/// Otherwise the number of the system's error.
std::expected<ItemIdentity, int> itemIdentity(int folder, const char* name);

/// Gives an item another place on its file system. Returns 0, or the number of the system's error: EEXIST
/// when something has that name, EXDEV when the place is on another file system; then nothing has changed.
/// Where the file system has no such call, an empty folder that appears at the same moment may be replaced;
/// nothing else.
int moveExclusively(int fromFolder, const char* fromName, int toFolder, const char* toName);

namespace ItemMovingDetail {
/// The system's own call. EINVAL or ENOTSUP where the file system has none.
int renameWithoutReplacing(int fromFolder, const char* fromName, int toFolder, const char* toName);
} // namespace ItemMovingDetail

} // namespace tarnwell
