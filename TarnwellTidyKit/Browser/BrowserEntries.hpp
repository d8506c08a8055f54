#pragma once

// What a folder holds, entry by entry, whether its scan is done or still runs: views and orders ask for the
// entries they need, by number.

#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellTidyKit/Browser/Removals.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace tarnwell {

/// One entry. Sizes in bytes, times in seconds since 2001-01-01 00:00:00 UTC.
struct BrowserEntry {
    /// Any bytes; lives as long as the entries it came from.
    std::string_view name;
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;
    std::int64_t fileCount = 0;
    std::int64_t directoryCount = 0;
    double modificationSeconds = FileNode::missingTime;
    FileNodeFlags flags = {};
    FileCategory category = FileCategory::other;
    bool isDirectory = false;
    bool sharesBlocks = false;
    bool reportsPrivateSize = false;
    /// Whether its sums still grow.
    bool isPending = false;
    /// Of a scan under way, only what never changes may be asked of it (LiveTree.hpp).
    const FileNode* node = nullptr;

    std::int64_t sizeFor(SizeMode mode) const {
        return mode == SizeMode::apparent    ? size
               : mode == SizeMode::allocated ? allocatedSize
                                             : reclaimableSize;
    }
    std::int64_t itemCount() const { return isDirectory ? fileCount + directoryCount : 1; }
};

/// Does not change; safe from any thread.
class BrowserEntries {
public:
    virtual ~BrowserEntries() = default;
    virtual std::size_t count() const = 0;
    virtual BrowserEntry at(std::uint32_t index) const = 0;
    /// The node of `at(index)`, without looking into it: of a million entries that makes the difference.
    virtual const FileNode* nodeAt(std::uint32_t index) const = 0;
    /// The folder itself.
    virtual BrowserEntry folder() const = 0;
    /// Of the whole scan, what could not be read so far; 0 once it is done, which has its own count.
    virtual std::int64_t unreadableSoFar() const { return 0; }
    /// Whether an entry is there no longer: it is not to be shown.
    virtual bool isGone(std::uint32_t) const { return false; }
};

/// A folder of a finished scan, less what has been removed since.
class TreeEntries final : public BrowserEntries {
public:
    TreeEntries(std::shared_ptr<const FileNode> root, const FileNode& folder,
                std::shared_ptr<const Removals> removals)
        : root_(std::move(root)), folder_(folder), removals_(std::move(removals)) {}

    std::size_t count() const override { return folder_.children().size(); }
    BrowserEntry at(std::uint32_t index) const override { return entry(*folder_.children()[index]); }
    const FileNode* nodeAt(std::uint32_t index) const override { return folder_.children()[index]; }
    BrowserEntry folder() const override { return entry(folder_); }
    bool isGone(std::uint32_t index) const override { return removals_->isGone(*folder_.children()[index]); }

    BrowserEntry entry(const FileNode& node) const { return entryOf(node, *removals_); }
    static BrowserEntry entryOf(const FileNode& node, const Removals& removals);

private:
    std::shared_ptr<const FileNode> root_;
    const FileNode& folder_;
    std::shared_ptr<const Removals> removals_;
};

} // namespace tarnwell
