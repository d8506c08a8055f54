#include "TarnwellCore/Platform/Linux/BtrfsSubvolumes.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <endian.h>
#include <linux/btrfs.h>
#include <linux/btrfs_tree.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <limits>

namespace tarnwell {

namespace {

constexpr BtrfsKey lastKey = {BtrfsKey::largestOffset, std::numeric_limits<std::uint8_t>::max(),
                              BtrfsKey::largestOffset};

bool isSubvolume(std::uint64_t tree) {
    return tree == BTRFS_FS_TREE_OBJECTID ||
           (tree >= BTRFS_FIRST_FREE_OBJECTID && tree <= BTRFS_LAST_FREE_OBJECTID);
}

/// Whether a subvolume was made as a snapshot, for all that is known.
bool mayBeSnapshot(std::uint64_t tree, const btrfs_root_item& item) {
    // What follows is missing, or was not kept up, where an old kernel has written.
    if (item.generation != item.generation_v2)
        return true;
    if (std::ranges::any_of(item.parent_uuid, [](std::uint8_t byte) { return byte != 0; }))
        return true;
    return tree != BTRFS_FS_TREE_OBJECTID && item.otransid == 0;
}

/// File systems made by old tools: a snapshot of such a subvolume does not say what it is one of.
bool hasNoIdentity(const btrfs_root_item& item) {
    return std::ranges::all_of(item.uuid, [](std::uint8_t byte) { return byte == 0; });
}

/// False when the kernel does not tell.
bool readInformation(int file, btrfs_ioctl_fs_info_args& information) {
    information = {};
    information.flags = BTRFS_FS_INFO_FLAG_GENERATION;
    return withoutInterruption([&] { return ::ioctl(file, BTRFS_IOC_FS_INFO, &information); }) == 0;
}

} // namespace

bool BtrfsReferenceState::read(int file, std::uint64_t generation, BtrfsSearch& search) {
    generation_ = generation;
    const bool isRead = search.forEach(
        file,
        {.tree = BTRFS_ROOT_TREE_OBJECTID,
         .first = {BTRFS_EXTENT_TREE_OBJECTID, BTRFS_ROOT_ITEM_KEY, 0},
         .last = lastKey},
        [&](const BtrfsSearch::Item& found) {
            if (found.key.type != BTRFS_ROOT_ITEM_KEY)
                return;
            const auto item = found.as<btrfs_root_item>();
            if (found.key.object == BTRFS_EXTENT_TREE_OBJECTID)
                committed_ = le64toh(item.generation);
            else if (found.key.object == BTRFS_TREE_RELOC_OBJECTID)
                hasSnapshots_ = true; // what is being moved lies in two trees
            else if (isSubvolume(found.key.object)) {
                if (item.refs != 0) // else it is being deleted, which only takes references away
                    lastSnapshots_[found.key.object] = le64toh(item.last_snapshot);
                hasSnapshots_ |= mayBeSnapshot(found.key.object, item) || hasNoIdentity(item);
            }
        },
        &BtrfsSearch::following);
    if (!isRead || committed_ == 0)
        return false;
    isUncountedKnown_ = committed_ >= generation_ || findUncounted(file, search);
    return true;
}

/// Every reference that a transaction adds is one from a leaf that it has written, or from the leaf that this
/// was before, which holds the same.
bool BtrfsReferenceState::findUncounted(int file, BtrfsSearch& search) {
    std::size_t answers = 0;
    const auto isTooMuch = [&] {
        return uncounted_.size() > largestUncounted || answers > largestAnswerCount;
    };
    for (const auto& [subvolume, snapshot] : lastSnapshots_) {
        const std::uint64_t tree = subvolume;
        const bool isRead = search.forEach(
            file,
            {.tree = tree,
             .first = {BTRFS_FIRST_FREE_OBJECTID, 0, 0},
             .last = lastKey,
             .oldestGeneration = committed_ + 1},
            [&](const BtrfsSearch::Item& found) {
                const auto item = found.as<btrfs_file_extent_item>();
                if (found.key.type == BTRFS_EXTENT_DATA_KEY && item.type != BTRFS_FILE_EXTENT_INLINE &&
                    item.disk_bytenr != 0 && !isTooMuch())
                    uncounted_.push_back({le64toh(item.disk_bytenr), userNumber(tree, found.key.object)});
            },
            [&](const BtrfsKey& last) {
                ++answers;
                return isTooMuch() ? last : BtrfsSearch::following(last);
            });
        if (!isRead || isTooMuch()) {
            uncounted_ = decltype(uncounted_)();
            return false;
        }
    }
    std::ranges::sort(uncounted_, {}, &Reference::extent);
    return true;
}

std::optional<std::uint64_t> BtrfsReferenceState::lastSnapshot(std::uint64_t tree) const {
    const auto found = lastSnapshots_.find(tree);
    if (found == lastSnapshots_.end())
        return std::nullopt;
    return hasSnapshots_ ? found->second : 0;
}

bool BtrfsReferenceState::isSettled(int file, BtrfsSearch& search) {
    // A transaction lasts half a minute.
    constexpr unsigned callsBetween = 32;
    if (committed_ >= generation_)
        return true;
    if (++calls_ % callsBetween != 0)
        return false;
    search.forEach(
        file,
        {.tree = BTRFS_ROOT_TREE_OBJECTID,
         .first = {BTRFS_EXTENT_TREE_OBJECTID, BTRFS_ROOT_ITEM_KEY, 0},
         .last = {BTRFS_EXTENT_TREE_OBJECTID, BTRFS_ROOT_ITEM_KEY, BtrfsKey::largestOffset}},
        [&](const BtrfsSearch::Item& found) { committed_ = le64toh(found.as<btrfs_root_item>().generation); },
        [](const BtrfsKey& last) { return last; });
    if (committed_ < generation_)
        return false;
    uncounted_ = decltype(uncounted_)();
    isUncountedKnown_ = true;
    return true;
}

bool BtrfsReferenceState::hasNoOther(std::uint64_t extent, bool isCounted, std::uint64_t tree,
                                     std::uint64_t object) const {
    if (!isUncountedKnown_)
        return false;
    const auto found = std::ranges::equal_range(uncounted_, extent, {}, &Reference::extent);
    if (found.empty())
        return true;
    // One that is counted, in a leaf where something else has changed. Not so if a snapshot may have had the
    // leaf before: it still refers to what is in it.
    return isCounted && !hasSnapshots_ && found.size() == 1 && found.front().user != 0 &&
           found.front().user == userNumber(tree, object);
}

/// 0 for numbers that are too large, as none are.
std::uint64_t BtrfsReferenceState::userNumber(std::uint64_t tree, std::uint64_t object) {
    constexpr unsigned objectBits = 44;
    if (object >> objectBits != 0 || tree >> (64 - objectBits) != 0)
        return 0;
    return tree << objectBits | object;
}

std::size_t BtrfsSubvolumes::Hash::operator()(const Identifier& identifier) const {
    std::size_t hash; // a UUID's first bytes are as good as random
    std::memcpy(&hash, identifier.data(), sizeof hash);
    return hash;
}

const BtrfsSubvolumes::Subvolume* BtrfsSubvolumes::of(int folder, std::int32_t device, BtrfsSearch& search) {
    const auto [known, isNew] = subvolumes_.try_emplace(device);
    std::optional<Subvolume>& subvolume = known->second;
    if (!isNew || search.isRefused())
        return subvolume ? &*subvolume : nullptr;
    btrfs_ioctl_fs_info_args information;
    btrfs_ioctl_ino_lookup_args lookup = {};
    lookup.objectid = BTRFS_FIRST_FREE_OBJECTID;
    if (!readInformation(folder, information) ||
        withoutInterruption([&] { return ::ioctl(folder, BTRFS_IOC_INO_LOOKUP, &lookup); }) != 0)
        return nullptr;
    Identifier identifier;
    static_assert(sizeof identifier == sizeof information.fsid);
    std::memcpy(identifier.data(), information.fsid, sizeof identifier);
    std::unique_ptr<BtrfsReferenceState>& state = states_[identifier];
    if (!state) {
        auto added = std::make_unique<BtrfsReferenceState>();
        const bool isTold = (information.flags & BTRFS_FS_INFO_FLAG_GENERATION) != 0;
        if (!added->read(folder, isTold ? information.generation : BtrfsKey::largestOffset, search))
            return nullptr;
        state = std::move(added);
    }
    if (const auto lastSnapshot = state->lastSnapshot(lookup.treeid))
        subvolume = {.tree = lookup.treeid, .lastSnapshot = *lastSnapshot, .references = state.get()};
    return subvolume ? &*subvolume : nullptr;
}

std::uint32_t BtrfsSubvolumes::fileSystemNumber(int file, std::int32_t device) {
    const auto [known, isNew] = numbers_.try_emplace(device, static_cast<std::uint32_t>(device));
    btrfs_ioctl_fs_info_args information;
    if (isNew && readInformation(file, information))
        std::memcpy(&known->second, information.fsid, sizeof known->second);
    return known->second;
}

} // namespace tarnwell
