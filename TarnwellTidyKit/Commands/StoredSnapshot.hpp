#pragma once

#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

namespace tarnwell {

inline ScanSnapshot storedSnapshotOf(const ScanResult& scan) {
    return ScanSnapshot::capture(scan, ScanSnapshot::storedDepth, ScanSnapshot::storedMinimumSize);
}

} // namespace tarnwell
