#pragma once

// The digest of what changed since a snapshot, as text and as document.

#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Snapshots/SnapshotDigest.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnwell {

class JSONWriter;

std::string digestText(const SnapshotDigest& digest, const TidyStyle& style);

/// `stats` are those of the later scan.
std::string digestDocument(const SnapshotDigest& digest, const UUID& since, const ScanStats& stats);

/// Writes an element of "causes", a change of a digest or of a list.
void writeCause(JSONWriter& json, std::string_view kind, std::string_view path, std::int64_t before,
                std::int64_t after, std::int64_t change);
/// Writes the member "since".
void writeSince(JSONWriter& json, const UUID& id, Date createdAt);

} // namespace tarnwell
