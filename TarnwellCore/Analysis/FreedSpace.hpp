#pragma once

// What goes free when several files and folders go together. Reclaimable sizes answer that for one file alone
// and add up wrongly for sets: of clones that go together each promises nothing, and of hard links one
// carries the bytes even when another stays.
//
// How a set is reckoned: a folder's allocated sum is taken as it stands, except for the files that a scan
// kept something of (FileNode::sharing). Each of those goes by itself:
// - A file with several links goes when all of them are in the set.
// - Blocks that files share go when every file that uses them goes, and once.
// - A placeholder of the cloud frees nothing.
// In allocated bytes; where the file system says what really lies on the disk (btrfs, to those with
// CAP_SYS_ADMIN), in those. The blocks of folders themselves are not counted, as nowhere in this library.

#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tarnwell {

/// Why bytes of a set are not promised.
enum class FreedSpaceReason {
    /// Other links to the same file lie elsewhere in the scan: nothing goes free.
    linksElsewhere,
    /// The file has more links than the scan saw; they may lie anywhere, also where it could not look.
    linksOutside,
    /// A file elsewhere in the scan uses the same blocks: nothing goes free.
    sharedElsewhere,
    /// All known users of these blocks are in the set; a snapshot, or a file that was not scanned, may be
    /// another.
    sharersUnknown,
    /// How many bytes the file takes on the disk is not known: its contents are stored compressed, or in the
    /// file
    /// system's own records.
    storedOtherwise,
    /// A placeholder of the cloud: its contents are not here.
    placeholder,
    /// A folder of which only sums were kept: what its files share is known for each alone.
    onlySums,
    /// Folders and entries that could not be read, or were left out: what they hold is in neither figure.
    unseen,
};

/// The fixed words for people, such as "other links stay".
std::string_view text(FreedSpaceReason reason);

struct FreedBytes {
    struct Reason {
        FreedSpaceReason kind;
        /// Allocated bytes that are not in `atLeast` for this reason; 0 for `unseen`.
        std::int64_t bytes = 0;
        /// How many files, or for `unseen` entries, are meant.
        std::int64_t count = 0;
        /// For `linksElsewhere`: the first links that stay, at most `largestNamedCount`. They live as long as
        /// the tree.
        std::vector<const FileNode*> elsewhere = {};
    };
    static constexpr std::size_t largestNamedCount = 20;

    /// Bytes that go free for sure, as far as the file system tells the truth and nothing changes; and what
    /// may go free at best. Equal where nothing lies outside of the scan.
    std::int64_t atLeast = 0;
    std::int64_t atMost = 0;
    /// In the order of the enumeration, each kind once, only those that are met.
    std::vector<Reason> reasons = {};
};

/// Answers for one finished scan. Making it takes one walk over the tree, an answer a walk over what in the
/// set is linked or shared. Safe from any thread.
class FreedSpace {
public:
    /// Whether a folder with this full path holds all files of its file systems, so that nothing lies
    /// outside.
    using HoldsAll = std::function<bool(const std::string& path)>;

    /// Holds the tree. A scan without one (`ScanResult::root` null) has no answers: std::invalid_argument.
    /// Of one whose options had not `keepsSharing` every file is reckoned alone: links of one file are not
    /// known for that, and `atLeast` promises too much of them.
    explicit FreedSpace(const ScanResult& scan);
    FreedSpace(const ScanResult& scan, const HoldsAll& holdsAll);
    ~FreedSpace();
    FreedSpace(FreedSpace&&) noexcept;
    FreedSpace& operator=(FreedSpace&&) noexcept;

    /// Of these nodes of the tree together; what lies below another of them counts once, as does what is
    /// named twice.
    /// `gone` has left the disk since the scan, with all that it held: it adds nothing, and none of its links
    /// and clones keeps anything of the others.
    FreedBytes of(std::span<const FileNode* const> nodes, std::span<const FileNode* const> gone = {}) const;

private:
    struct Index;
    std::unique_ptr<const Index> index_;
};

} // namespace tarnwell
