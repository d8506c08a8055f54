#pragma once

// How a user names a stored snapshot: by its UUID, by the beginning of it, or as "latest" or "previous".

#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <expected>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarnwell {

/// Why a reference names no snapshot.
struct SnapshotReferenceError {
    struct NotFound {
        /// As typed.
        std::string reference;

        bool operator==(const NotFound&) const = default;
    };
    struct Ambiguous {
        /// As typed.
        std::string prefix;
        /// The UUIDs that begin with it.
        std::vector<std::string> matches;

        bool operator==(const Ambiguous&) const = default;
    };

    std::variant<NotFound, Ambiguous> reason;

    /// The text for the user, without a line feed.
    std::string message() const;

    bool operator==(const SnapshotReferenceError&) const = default;
};

namespace SnapshotReference {

/// The snapshot that a reference names, one of those given, which may be in any order. Letter case does not
/// matter. "latest" is the newest, "previous" the second newest.
std::expected<const ScanSnapshot*, SnapshotReferenceError> resolve(std::string_view reference,
                                                                   std::span<const ScanSnapshot> in);

} // namespace SnapshotReference

} // namespace tarnwell
