#pragma once

// What a search for duplicates comes to. All sizes in bytes.

#include "TarnwellCore/Platform/MeasuredFile.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarnwell {

/// One path of a group.
struct DuplicateMember {
    const FileNode* node = nullptr;
    /// Which of the group's files this is a path of. Members of one file are hard links of each other.
    std::size_t file = 0;
};

/// One file of a group, however many links it has.
struct DuplicateFile {
    /// As it was read.
    FileVersion version;
    /// What removing all members of this file would free: nothing where it has links that the search did not
    /// see, or where all its blocks are shared, according to the scan.
    std::int64_t reclaimableSize = 0;
    /// Files with the same number share all their blocks with each other already; 0 with none of the group.
    std::size_t cloneSet = 0;
    bool hasUnseenLinks = false;
};

/// Two or more files of equal contents.
struct DuplicateGroup {
    std::int64_t size = 0;
    /// In the order of their paths, as bytes. Every link that the search saw is a member.
    std::vector<DuplicateMember> members;
    /// In the order of their first members.
    std::vector<DuplicateFile> files;
    /// What removing all files but one frees at most. Files that share all their blocks count as one file.
    std::int64_t waste = 0;

    bool areLinks(std::size_t oneMember, std::size_t otherMember) const {
        return members[oneMember].file == members[otherMember].file;
    }
    /// Whether two members are different files that share all their blocks.
    bool areClones(std::size_t oneMember, std::size_t otherMember) const {
        const std::size_t set = files[members[oneMember].file].cloneSet;
        return set != 0 && !areLinks(oneMember, otherMember) &&
               set == files[members[otherMember].file].cloneSet;
    }
    /// The first path of one of the files.
    const FileNode& firstMember(std::size_t file) const;
};

/// A file that could have been a duplicate, had it not changed since the scan or while it was read, or could
/// it be read.
struct DroppedFile {
    const FileNode* node = nullptr;
    FileFault fault;
};

struct DuplicateTotals {
    /// Files, not links, whose contents were looked at, and how much of them was read.
    std::int64_t candidateCount = 0;
    std::int64_t bytesRead = 0;
    /// Files of the groups beyond the first of each.
    std::int64_t duplicateCount = 0;
    /// The sum over the groups.
    std::int64_t waste = 0;
    /// Seconds.
    double duration = 0;
};

struct DuplicateResult {
    /// The trees that were searched: they keep all nodes below alive.
    std::vector<std::shared_ptr<const FileNode>> roots;
    /// Largest waste first; of equal waste the larger size, then the smaller first path.
    std::vector<DuplicateGroup> groups;
    /// In the order of their paths.
    std::vector<DroppedFile> dropped;
    DuplicateTotals totals;
};

/// A look at a search under way.
struct DuplicateProgress {
    std::int64_t bytesRead = 0;
    /// What will have been read in the end, as far as that is known: it grows when the beginnings of the
    /// files have been compared.
    std::int64_t bytesToRead = 0;
    std::int64_t groupCount = 0;
    std::int64_t droppedCount = 0;
    /// Seconds.
    double elapsed = 0;
    bool isFinished = false;
};

} // namespace tarnwell
