#pragma once

// Levels of the file tree as stretches of a line, each divided among its children: what the icicle, the
// sunburst and the parts of bars have in common.

#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Layout/TreemapConfiguration.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tarnwell {

/// A stretch from `start` on, in units of the line.
struct Slice {
    const FileNode* node;
    const FileNode* parent;
    std::int64_t depth;
    std::int64_t value;
    std::int64_t aggregatedCount;
    double start;
    double length;
};

/// What is long enough at one depth, in units of the line.
struct SliceLevel {
    /// Nothing shorter is given.
    double minimumLength;
    /// What is longer than this is divided among its children.
    double minimumLengthForRecursion;
};

/// The side of the smallest square that is drawn: nothing is narrower or lower than this.
double smallestSide(const TreemapConfiguration& configuration);

/// How many levels of at least `smallestSide` fit, no more than the configuration asks for.
std::size_t levelCount(const TreemapConfiguration& configuration, double extent);

/// Divides the line among the children, in pre-order, siblings largest first, equal ones by name; no deeper
/// than there are levels. Siblings touch and fill their parent. Those that would be too short are one slice
/// at the end; where that would be too short as well, the others take its place. Weights and what is left out
/// are as in TreemapLayout.hpp.
std::vector<Slice> layoutSlices(std::span<const FileNode* const> children, const FileNode* parent,
                                double start, double length, std::span<const SliceLevel> levels,
                                const TreemapConfiguration& configuration, RemovedNodesQuery& removed);

} // namespace tarnwell
