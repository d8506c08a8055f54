#pragma once

// What a report tells of a scanned tree, gathered in one walk.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnwell {

/// Bytes in the three modes, and how many files they are.
struct FigureSum {
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;
    std::int64_t fileCount = 0;

    std::int64_t sizeFor(SizeMode mode) const;
    /// A sum beyond 64 bits is a fatal error.
    void add(const FileNode& node, std::int64_t files);

    bool operator==(const FigureSum&) const = default;
};

/// Files by the time since they were last modified.
enum class ReportAge : std::uint8_t { underMonth, underYear, older, unknown };
inline constexpr std::size_t reportAgeCount = 4;

/// Counted is what the totals of the tree count: of several links one, nothing that could not be read.
struct ReportFigures {
    /// By raw value. They add up to the tree's totals, but for the apparent size of the root itself when it
    /// is a file.
    std::array<FigureSum, fileCategoryCount> categories;
    /// By age. A folder whose contents have no nodes counts by its own time.
    std::array<FigureSum, reportAgeCount> ages;
    /// Counted files with shared blocks, and by how much their allocated bytes exceed what deleting each of
    /// them alone would free.
    std::int64_t cloneCount = 0;
    std::int64_t cloneSharedBytes = 0;
    /// The largest counted files in the chosen mode, largest first, equal ones in the order of their paths.
    std::vector<const FileNode*> largestFiles;
    /// The largest folders below the root in the chosen mode likewise. A folder of which a single folder
    /// inside holds four fifths or more is told by that one and left out.
    std::vector<const FileNode*> largestFolders;

    /// At most `limit` of the largest; ages are counted back from `now`. The nodes belong to the tree. What
    /// is among `removed` below the root is left out, with all that it holds; the sums of `largestFolders`
    /// are those of the scan.
    static ReportFigures of(const FileNode& root, SizeMode mode, std::size_t limit, Date now,
                            const RemovedNodes& removed = {});
};

} // namespace tarnwell
