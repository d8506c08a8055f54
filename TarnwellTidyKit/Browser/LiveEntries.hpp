#pragma once

// What a scan that still runs has found: the one thing that the browser asks it.

#include "TarnwellTidyKit/Browser/BrowserEntries.hpp"

#include <memory>

namespace tarnwell {

/// Safe from any thread.
class LiveSource {
public:
    virtual ~LiveSource() = default;
    /// What is known of a folder, or of the root for null; null when nothing is known of it. Does not read
    /// the disk.
    virtual std::shared_ptr<const BrowserEntries> look(const FileNode* folder) const = 0;
};

} // namespace tarnwell
