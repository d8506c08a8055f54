#pragma once

// Lets duplicates share their blocks: space is freed and no file goes away.
//
// The files of a group stay what they are, each with its own name, owner, permissions, times and attributes;
// a later change of one does not touch the others. This works on file systems that share extents (on Linux
// btrfs, XFS with reflink and others, on macOS APFS); elsewhere every file is refused.
//
// Whenever the process ends, be it killed, every file is whole with its own metadata. On Linux the kernel
// compares and shares a range at a time, and a range is shared or it is not. On macOS one more file may be
// left over beside it, which the next sharing there removes after a day (CloneReplacement.hpp).

#include "TarnwellCore/Actions/SharingOutcome.hpp"
#include "TarnwellCore/Analysis/DuplicateResult.hpp"
#include "TarnwellCore/Platform/ExtentSharing.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/PathOrder.hpp"

#include <cstdint>
#include <expected>
#include <functional>
#include <future>
#include <string>
#include <vector>

namespace tarnwell {

/// Files of equal contents, by path, as they were when they were compared. A value: it needs no tree.
struct SharingRequest {
    struct Item {
        std::string path;
        FileVersion version;
        bool operator==(const Item&) const = default;
    };
    /// The others come to share the blocks of the first.
    std::vector<Item> items;

    /// The files of a group, each by its first path; the one with the smallest path is the first. Of files
    /// whose paths are beyond the budget, the first.
    static SharingRequest of(const DuplicateGroup& group, PathBudget& budget);
    /// The same with a budget for this group alone.
    static SharingRequest of(const DuplicateGroup& group);
};

/// A value without mutable state; may be used from any thread and may go away while it works.
struct BlockSharing {
    using Reporter = std::function<void(const SharingOutcome&)>;

    /// Makes one file share the blocks of another; the platform's unless somebody replaces it.
    std::function<std::expected<std::int64_t, SharingFault>(
        const SharingFile& first, const SharingFile& further, const std::function<bool()>& isCancelled)>
        shareExtents;

    /// Wired to the platform.
    BlockSharing();

    /// One outcome for each file of the request but the first, in its order. A failure stops nothing. Once
    /// cancelled, the file at hand stays as it is, at most partly shared, and the others are refused.
    /// `report` is told of each outcome from another thread, and must not throw. Never throws, nor does the
    /// future but for want of memory. Dropping the future waits for the operation to end.
    std::future<std::vector<SharingOutcome>> share(SharingRequest request, Reporter report = nullptr,
                                                   CancellationToken token = {}) const;
};

} // namespace tarnwell
