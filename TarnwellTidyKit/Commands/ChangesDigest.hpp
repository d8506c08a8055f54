#pragma once

// The digest of what changed since a snapshot, as text and as document.

#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Snapshots/SnapshotDigest.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <string>

namespace tarnwell {

std::string digestText(const SnapshotDigest& digest, const TidyStyle& style);

/// `stats` are those of the later scan.
std::string digestDocument(const SnapshotDigest& digest, const UUID& since, const ScanStats& stats);

} // namespace tarnwell
