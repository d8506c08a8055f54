#pragma once

// The comparison of two snapshots by its rules as they are told, pair by pair: slow, and easy to believe.

#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include <cstdint>
#include <vector>

namespace tarnwell::test {

/// The changes that `SnapshotDelta::compare` should list, in their order. Quadratic in the entries.
std::vector<SnapshotDelta::Change> plainChanges(const ScanSnapshot& before, const ScanSnapshot& after,
                                                std::int64_t threshold, SizeMode mode);

} // namespace tarnwell::test
