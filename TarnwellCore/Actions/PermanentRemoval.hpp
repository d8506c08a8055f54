#pragma once

// Deletes for good, for places without a Trash and for what lies in one.
//
// Everything happens below a descriptor of the folder that the item lies in: no link on the way leads
// elsewhere, none is followed, and what is mounted below stays. Folders deeper than the stack, and paths
// longer than PATH_MAX, are ordinary. Whoever else renames folders meanwhile can make this stop, but not
// delete in another place: the way back up is taken only to the very folder that was left.

#include "TarnwellCore/Scanning/CancellationToken.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tarnwell {

struct RemovalResult {
    struct Failure {
        std::string path;
        /// The system's words.
        std::string message;

        bool operator==(const Failure&) const = default;
    };
    static constexpr std::size_t mostFailures = 100;

    /// Whether nothing is left.
    bool isComplete = false;
    bool wasCancelled = false;
    std::int64_t removedCount = 0;
    /// Failures in all, and the first of them. A folder that could not go because of what is left in it is
    /// none.
    std::int64_t failureCount = 0;
    std::vector<Failure> failures;
};

namespace PermanentRemoval {

/// Deletes an item with all it holds. A link is deleted itself. Stops between two entries once `token` is
/// cancelled. The user's own folders that forbid it are opened up first. Never throws but for want of memory.
RemovalResult remove(const std::filesystem::path& item, const CancellationToken& token = {});

/// Deletes what a folder holds; the folder stays.
RemovalResult removeContents(const std::filesystem::path& folder, const CancellationToken& token = {});
/// The same of a folder that is open, and stays so; `path` only names it in failures.
RemovalResult removeContents(int openFolder, const std::filesystem::path& path,
                             const CancellationToken& token = {});

} // namespace PermanentRemoval
} // namespace tarnwell
