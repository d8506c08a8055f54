#pragma once

// Runs cleanup rules over a scanned tree: all of them in one walk.

#include "TarnwellCore/Analysis/CleanupRule.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>
#include <string_view>
#include <vector>

namespace tarnwell {

/// What one rule found. The nodes belong to the tree and live as long as it does.
struct RuleMatch {
    CleanupRule rule = {};
    /// In walk order: a folder before what lies behind it, children in their stored order. A matched
    /// folder stands for all it holds.
    std::vector<const FileNode*> nodes = {};
    /// Sum of the nodes' `size`, bytes.
    std::int64_t totalSize = 0;
    /// The number of nodes.
    std::int64_t itemCount = 0;
    /// Sum of the nodes' `reclaimableSize`, bytes.
    std::int64_t reclaimableSize = 0;

    bool operator==(const RuleMatch&) const = default;
};

namespace RuleEvaluator {

/// One match for each enabled rule that matched anything, in the order of the rules. Ages are counted
/// back from `now`; a location that begins with "~/" lies in `homePath`, which counts with its links resolved
/// as well as as it is written, also where a location spells it out. Sums beyond 64 bits are a fatal error.
/// Throws ScanError (cancelled) once `token` is cancelled. Safe from any thread.
std::vector<RuleMatch> evaluate(const std::vector<CleanupRule>& rules, const FileNode& root, Date now,
                                std::string_view homePath, const CancellationToken& token = {});

} // namespace RuleEvaluator
} // namespace tarnwell
