#pragma once

// The stored form of a snapshot, a contract between every program that opens the folder: a JSON object,
// pretty-printed with two blanks a level and keys in ascending order, the date in UTC at whole seconds, the
// identity as upper-case text, all text in UTF-8, no line feed at the end. What was written, read and written
// again is the same bytes.
//
// A snapshot with a path that is not UTF-8 has one more member, "escapedPaths": true, and all its paths are
// as EscapedPath.hpp writes them. Other programs may pass that member over: they then show and compare the
// escaped paths. Without it every path stands for itself. A snapshot that a schedule took has one more
// member, "isScheduled": true.

#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tarnwell::SnapshotCoding {

/// The stored form, which reads back as the same snapshot, to the second. Throws std::range_error for a date
/// outside the years 0001 to 9999.
std::string encode(const ScanSnapshot& snapshot);

/// Gives the next bytes of a document: fills the front of the span and returns how many there are, 0 at the
/// end, -1 when they cannot be read.
using ByteSource = std::function<std::ptrdiff_t(std::span<char>)>;

/// Reads a stored form, in pieces: beside the snapshot it makes, its memory has a fixed bound, so that a
/// foreign file does no harm, however long or deeply nested. Nothing when the bytes are not JSON in UTF-8, a
/// required key is missing, a known key's value has another type, or an integer does not fit (1.0 is not an
/// integer). Unknown keys are ignored, whatever their values; of a key that stands twice the last counts.
/// Three keys came late and may be missing or null: "totalReclaimableSize" (then the allocated total),
/// "minimumSize" (then 0) and an entry's "reclaimableSize" (then its allocated size).
std::optional<ScanSnapshot> decode(const ByteSource& source);
std::optional<ScanSnapshot> decode(std::string_view document);

} // namespace tarnwell::SnapshotCoding
