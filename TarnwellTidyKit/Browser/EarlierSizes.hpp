#pragma once

// The sizes of a snapshot, by path: what rows are compared with.

#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <optional>
#include <string_view>
#include <unordered_map>

namespace tarnwell {

/// Does not change; safe from any thread.
class EarlierSizes {
public:
    explicit EarlierSizes(ScanSnapshot snapshot);
    EarlierSizes(const EarlierSizes&) = delete;
    EarlierSizes& operator=(const EarlierSizes&) = delete;

    /// Of a path relative to the snapshot's root; nothing when it was too small, too deep, or not there.
    std::optional<std::int64_t> sizeOf(std::string_view path, SizeMode mode) const;
    const ScanSnapshot& snapshot() const { return snapshot_; }

private:
    ScanSnapshot snapshot_;
    std::unordered_map<std::string_view, const ScanSnapshot::Entry*> byPath_;
};

} // namespace tarnwell
