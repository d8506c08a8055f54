#pragma once

// A finished scan as the browser holds it.

#include "TarnwellCore/Analysis/FreedSpace.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellTidyKit/Browser/Marks.hpp"

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnwell {

/// Does not change; safe from any thread.
class BrowserTree {
public:
    /// Looks at the disk for the names of the home.
    BrowserTree(ScanResult scan, const std::filesystem::path& home);

    const ScanResult& scan() const { return scan_; }
    const FileNode& root() const { return *scan_.root; }
    std::shared_ptr<const FileNode> rootOwner() const { return scan_.root; }
    /// Why a node is never moved away, for the user; empty when it may be.
    std::string_view reasonToStay(const FileNode& node) const;
    /// What goes free when these go together. The first call takes one walk over the tree.
    /// `deleted` has left the disk since the scan: its links and clones keep nothing any more.
    FreedBytes freedBy(const std::vector<const FileNode*>& nodes,
                       const std::unordered_set<const FileNode*>& deleted = {}) const;
    /// The same items in this tree as are marked in another, or were while this one was scanned, but for
    /// those that have to stay. Of a million this takes a second.
    CarriedMarks carried(Marks marks) const;

private:
    ScanResult scan_;
    std::unordered_map<const FileNode*, std::string_view> protected_;
    mutable std::mutex mutex_;
    mutable std::unique_ptr<const FreedSpace> freed_; // guarded by mutex_; made once
};

} // namespace tarnwell
