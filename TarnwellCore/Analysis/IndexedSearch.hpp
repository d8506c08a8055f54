#pragma once

// Finds nodes of a scanned tree by what the system's index knows: contents and metadata, which no scan reads.

#include "TarnwellCore/Analysis/SearchConditions.hpp"
#include "TarnwellCore/Platform/SystemIndex.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <expected>
#include <functional>
#include <string>
#include <vector>

namespace tarnwell {

struct IndexedSearch {
    /// Replaceable.
    std::function<std::expected<std::vector<std::string>, SystemIndexFailure>(
        const SystemIndexQuery&, const std::function<bool()>& isCancelled)>
        ask = askSystemIndex;

    /// The nodes below `root` that the index gives for the expression (see SystemIndex.hpp) and that meet the
    /// conditions, in byte order of their paths. What the index knows and the tree does not hold is left out.
    /// Throws SearchError. Blocks; safe from any thread.
    std::expected<std::vector<const FileNode*>, SystemIndexFailure>
    find(const FileNode& root, const std::string& expression, const SearchConditions& conditions = {},
         const CancellationToken& token = {}) const;
};

} // namespace tarnwell
