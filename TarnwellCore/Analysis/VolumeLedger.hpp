#pragma once

// Where the bytes of a volume are: what a scan measured, and by name all that it did not.
//
//     for (const LedgerLine& line : makeVolumeLedger(scan).lines)
//         print(text(line.entry), line.isSubtracted, line.bytes, line.count, line.paths);
//
// The bytes of all lines that are known, less those of the lines that are subtracted, are those that the
// volume says are used. Every line is always there, in the order of the enumeration; none is negative.

#include "TarnwellCore/Platform/VolumeUsage.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Scanning/VolumeInfo.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

enum class LedgerEntry : std::uint8_t {
    /// Allocated bytes of the files that were scanned and lie on this volume.
    measured,
    /// Subtracted: blocks that several of these files share, counted for each, and by how much files take
    /// less than their blocks say, where the file system tells (compressed ones on btrfs, to those with
    /// CAP_SYS_ADMIN; placeholders of the cloud). Not known for a scan that did not keep what files share.
    sharedTwice,
    /// The blocks of the folders themselves, which no sum of a scan has.
    folders,
    /// What could not be read. Not known, unless there is nothing.
    unreadable,
    /// What the scan's options left out. Not known unless it was measured, or there is nothing.
    excluded,
    /// What is mounted on folders of the scan: nothing where it lies on other file systems, not known where
    /// it is another part of this one, such as a subvolume.
    mounted,
    /// Parts of the volume that do not lie below the scan's root. Not known, unless there are none.
    outside,
    /// What snapshots alone hold, and what the system would remove to make room, where it tells. The latter
    /// may have been measured as well.
    snapshots,
    purgeable,
    /// The rest.
    unexplained,
    /// Subtracted: by how much the lines above exceed what the volume says, for what was counted twice or has
    /// changed since.
    excess,
};

inline constexpr int ledgerEntryCount = static_cast<int>(LedgerEntry::excess) + 1;

/// Words for people, such as "blocks of folders".
std::string_view text(LedgerEntry entry);

struct LedgerLine {
    /// Most of the paths that a line names; `count` says how many there are.
    static constexpr std::size_t largestNamedCount = 1000;

    LedgerEntry entry = LedgerEntry::measured;
    bool isSubtracted = false;
    /// Absent: not known.
    std::optional<std::int64_t> bytes = {};
    /// Files, folders or places that are meant; 0 where a line is about none in particular.
    std::int64_t count = 0;
    /// Full paths of them, for `unreadable`, `excluded` and `mounted`; in byte order. Of unreadable things,
    /// the folders.
    std::vector<std::string> paths = {};
};

struct VolumeLedger {
    /// The volume that holds the scan's root; absent when it has gone.
    std::optional<VolumeInfo> volume;
    /// Bytes that the volume says are used, also by what no file accounts for; absent when it does not
    /// answer. Without it `unexplained` and `excess` are not known.
    std::optional<std::int64_t> used;
    std::vector<LedgerLine> lines;

    const LedgerLine& line(LedgerEntry entry) const { return lines.at(static_cast<std::size_t>(entry)); }
};

/// What the ledger asks the system.
struct LedgerServices {
    std::function<std::optional<VolumeInfo>(const std::string& path)> volumeContaining;
    std::function<std::optional<VolumeUsage>(const std::string& path)> usage;
    /// Whether the item on which something is mounted shows another part of the file system at `volumePath`.
    std::function<bool(const std::string& path, const std::string& volumePath)> isPartOf;
    /// The allocated bytes of what was left out, with those of its folders; nothing when that cannot be read
    /// to its end. Without this function it is not known.
    std::function<std::optional<std::int64_t>(const std::string& path, const ScanOptions& options,
                                              const CancellationToken& token)>
        measure;

    /// The real ones, without `measure`, which takes as long as a scan of what was left out; or with it.
    static LedgerServices live(bool measuresExcluded = false);
};

/// Asks the volume anew: a scan that has just ended fits best. One walk over the tree. A scan without a tree
/// is a std::invalid_argument; throws ScanError when `token` calls measuring off.
VolumeLedger makeVolumeLedger(const ScanResult& scan, const LedgerServices& services = LedgerServices::live(),
                              const CancellationToken& token = {});

} // namespace tarnwell
