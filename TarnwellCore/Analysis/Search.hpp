#pragma once

// Finds what meets conditions in a scanned tree, in one walk on the calling thread.

#include "TarnwellCore/Analysis/SearchConditions.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace tarnwell {

/// What the matches come to.
struct SearchTotals {
    /// The matches.
    std::int64_t count = 0;
    /// Bytes. A folder that matches stands for what it holds: what matches below it adds nothing. Nor do
    /// further links and what could not be read, as in the sums of folders.
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;
    /// Names or paths for which a regular expression was given up; their nodes are not among the matches.
    std::int64_t undecidedCount = 0;

    bool operator==(const SearchTotals&) const = default;
};

/// The nodes belong to the tree and live as long as it does.
struct LargestMatches {
    /// Largest first in the size mode of the conditions; equal ones in walk order.
    std::vector<const FileNode*> nodes = {};
    /// Of all matches.
    SearchTotals totals = {};
};

/// Bytes.
struct NodeSizes {
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;

    std::int64_t forMode(SizeMode mode) const {
        return mode == SizeMode::apparent    ? size
               : mode == SizeMode::allocated ? allocatedSize
                                             : reclaimableSize;
    }
};
/// What a node counts for where that is not what the scan found; nothing leaves it out with all below it.
using SizesOfNode = std::function<std::optional<NodeSizes>(const FileNode&)>;

/// Below `root`, which is not itself a candidate; no further than the tree goes. Sums beyond 64 bits are a
/// fatal error. Throws SearchError, soon after `token` was cancelled as well. Safe from any thread.
namespace Search {

/// Hands every match to `found` in walk order: a folder before what it holds, children in their stored order.
/// Ends early when `found` returns false, with the totals so far.
SearchTotals stream(const FileNode& root, const SearchConditions& conditions,
                    const std::function<bool(const FileNode&)>& found, const CancellationToken& token = {});

/// At most `limit` matches, the largest; memory stays with the limit. The conditions hold for the sizes that
/// the scan found, order and totals follow `sizesOf` where it is given.
LargestMatches largest(const FileNode& root, const SearchConditions& conditions, std::size_t limit,
                       const CancellationToken& token = {}, const SizesOfNode& sizesOf = {});

} // namespace Search
} // namespace tarnwell
