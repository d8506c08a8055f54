#pragma once

// Snapshots as they are taken everywhere here: only those of equal depth and fineness can be compared.

#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

namespace tarnwell {

inline ScanSnapshot storedSnapshotOf(const ScanResult& scan) {
    constexpr std::int64_t levels = 4;
    constexpr std::int64_t smallest = 1'000'000; // bytes
    return ScanSnapshot::capture(scan, levels, smallest);
}

} // namespace tarnwell
