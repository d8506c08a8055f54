#pragma once

// What a search for duplicates looks for, and how.

#include <cstdint>

namespace tarnwell {

struct DuplicateOptions {
    /// Smaller files are no candidates; nor are empty ones, whatever this says. Users set it
    /// (`AppSettings::duplicateOptions`).
    std::int64_t minimumSize = 1'000'000;
    /// Least seconds between two progress reports.
    double progressInterval = 0.1;
    /// Threads that read; one for each processor when below 1.
    int workerCount = 0;
};

} // namespace tarnwell
