#pragma once

// What must be known of a btrfs before its extent tree can say who shares an extent: which subvolumes may
// share whole leaves of their trees with a snapshot, and which references are counted so far.

#include "TarnwellCore/Platform/Linux/BtrfsSearch.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace tarnwell {

/// The references of extents as they were when they were first asked for. References are counted in the
/// extent tree some time after they came to be, at the latest when the transaction ends in which they did.
/// Nobody has to end it early for us: what it has changed can be found. Confined to one thread.
class BtrfsReferenceState {
public:
    /// Reads the state of the file system that a file is on; false when the kernel does not tell.
    bool read(int file, std::uint64_t generation, BtrfsSearch& search);

    /// In which generation a snapshot was made of a subvolume, last: leaves that were written later are its
    /// own. 0 when there is none whose leaves could be shared. None for a subvolume that was not there.
    std::optional<std::uint64_t> lastSnapshot(std::uint64_t tree) const;

    /// Whether all of the references then are counted by now.
    bool isSettled(int file, BtrfsSearch& search);
    /// Until then: whether an extent that has one reference, which may be known to be that of `object` in
    /// `tree`, has no others that are not counted.
    bool hasNoOther(std::uint64_t extent, bool isCounted, std::uint64_t tree, std::uint64_t object) const;

private:
    /// A reference that may not be counted yet, as it lies in a leaf that the running transaction has
    /// written.
    struct Reference {
        std::uint64_t extent;
        std::uint64_t user;
    };
    bool findUncounted(int file, BtrfsSearch& search);
    static std::uint64_t userNumber(std::uint64_t tree, std::uint64_t object);

    // 4 MiB of memory, and 128 that are looked through.
    static constexpr std::size_t largestUncounted = std::size_t{1} << 18;
    static constexpr std::size_t largestAnswerCount = 2048;

    std::uint64_t generation_ = 0; // of the transaction that ran
    std::uint64_t committed_ = 0;  // of the last one that has ended
    bool hasSnapshots_ = false;
    bool isUncountedKnown_ = false;
    unsigned calls_ = 0;
    std::unordered_map<std::uint64_t, std::uint64_t> lastSnapshots_; // by tree
    std::vector<Reference> uncounted_;                               // by extent
};

/// Confined to one thread.
class BtrfsSubvolumes {
public:
    struct Subvolume {
        std::uint64_t tree;
        std::uint64_t lastSnapshot;
        BtrfsReferenceState* references;
    };

    /// The subvolume that an open folder is in; null when the kernel does not tell. Asked once a device.
    const Subvolume* of(int folder, std::int32_t device, BtrfsSearch& search);

    /// The same for all subvolumes of one file system.
    std::uint32_t fileSystemNumber(int file, std::int32_t device);

private:
    using Identifier = std::array<std::uint8_t, 16>;
    struct Hash {
        std::size_t operator()(const Identifier& identifier) const;
    };

    std::unordered_map<std::int32_t, std::optional<Subvolume>> subvolumes_;
    std::unordered_map<Identifier, std::unique_ptr<BtrfsReferenceState>, Hash> states_;
    std::unordered_map<std::int32_t, std::uint32_t> numbers_; // by device
};

} // namespace tarnwell
