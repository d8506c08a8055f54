#pragma once

// Snapshots for tests that did not come from a scan.

#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarnwell::test {

/// Seconds since 1970.
inline Date dateAt(double seconds) {
    return Date(Date::duration(seconds));
}

/// A snapshot of "/home/alice" with a random identity and only the root as entry, everything of this size.
ScanSnapshot makeSnapshot(double createdAt = 1714555800, std::int64_t size = 0);

/// One whose entries follow from its identity alone, so that it can be told whether it is whole.
ScanSnapshot makeCheckableSnapshot(const UUID& id, std::size_t entryCount);

ScanSnapshot::Entry makeEntry(std::string_view path, std::int64_t size, std::int64_t fileCount = 1,
                              bool isDirectory = false);

} // namespace tarnwell::test
