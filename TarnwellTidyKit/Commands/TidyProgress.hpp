#pragma once

// The line that tells how far a scan is, while it runs and where somebody can see it.

#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellTidyKit/Commands/TidySurroundings.hpp"

namespace tarnwell {

/// Shows a line as soon as there is something to tell, and removes it when it goes.
class TidyProgress {
public:
    explicit TidyProgress(const TidySurroundings& surroundings) : surroundings_(surroundings) {}
    ~TidyProgress() { clear(); }
    TidyProgress(const TidyProgress&) = delete;
    TidyProgress& operator=(const TidyProgress&) = delete;

    /// To be given to a scan that ends before this goes; empty where nobody looks.
    DiskScanner::ProgressHandler handler() const;
    /// Shows any other line.
    void show(std::string_view text) const;
    void clear() const;

private:
    const TidySurroundings& surroundings_;
};

} // namespace tarnwell
