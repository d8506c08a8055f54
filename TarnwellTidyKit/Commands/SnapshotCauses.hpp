#pragma once

// The changes between two snapshots as people ask for them: not every folder on the way, but what it was.

#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include <string_view>
#include <vector>

namespace tarnwell {

/// Of a comparison's changes those that tell the others: a folder stands for what it holds, unless a single
/// item in it accounts for four fifths of its change, which then stands for the folder. The root, and what
/// only crossed the size from which snapshots keep items, is never a cause. In the order of the changes; they
/// belong to `delta`.
std::vector<const SnapshotDelta::Change*> snapshotCauses(const SnapshotDelta& delta);

/// The snapshot of a folder that a user means: "latest" and "previous" of those of that root, the newest one
/// from before a date or age, or the one whose identifier begins so. `snapshots` are newest first. Throws
/// std::runtime_error with the text for the user when there is none, or more than one.
const ScanSnapshot& snapshotMeant(std::string_view word, std::string_view rootPath,
                                  const std::vector<ScanSnapshot>& snapshots, Date now);

} // namespace tarnwell
