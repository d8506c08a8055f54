#include "TarnwellCore/Platform/Linux/BtrfsExtents.hpp"

#include <endian.h>
#include <linux/btrfs_tree.h>

#include <algorithm>
#include <limits>

namespace tarnwell {

namespace {

// Items that lie between cost less than another call, up to here.
constexpr std::uint64_t nearInodes = 16;
constexpr std::uint64_t nearBytes = std::uint64_t{1} << 20;

// Newer than some headers: whose the space is, which says nothing about its users.
constexpr std::uint8_t ownerReference = 172;

BtrfsExtents::Extent extentFrom(const BtrfsKey& key, const btrfs_file_extent_item& item) {
    return {.logical = key.offset,
            .length = le64toh(item.num_bytes),
            .start = le64toh(item.disk_bytenr),
            .lengthOnDisk = le64toh(item.disk_num_bytes)};
}

/// Calls `body` for the runs of elements each of which is near to the one before.
template <class Elements, class IsNear, class Body>
bool forEachRun(const Elements& elements, IsNear isNear, Body body) {
    std::size_t first = 0;
    for (std::size_t next = 1; next <= elements.size(); ++next) {
        if (next < elements.size() && isNear(elements[next - 1], elements[next]))
            continue;
        if (!body(first, next))
            return false;
        first = next;
    }
    return true;
}

} // namespace

bool BtrfsExtents::read(int file, std::uint64_t inode, std::vector<Extent>& extents) {
    extents.clear();
    return search_.forEach(
        file,
        {.first = {inode, BTRFS_EXTENT_DATA_KEY, 0},
         .last = {inode, BTRFS_EXTENT_DATA_KEY, BtrfsKey::largestOffset}},
        [&](const BtrfsSearch::Item& found) {
            const auto item = found.as<btrfs_file_extent_item>();
            if (item.type != BTRFS_FILE_EXTENT_INLINE && found.bytes.size() >= sizeof item &&
                item.disk_bytenr != 0)
                extents.push_back(extentFrom(found.key, item));
        },
        [&](const BtrfsKey& last) {
            // Items with the data inside are larger, and stand alone.
            return search_.hadNoRoomFor(sizeof(btrfs_file_extent_item)) ? BtrfsSearch::following(last) : last;
        });
}

/// Makes files of the items of some inodes, which may be met among those of others.
class BtrfsExtents::Collection {
public:
    Collection(BtrfsExtents& owner, std::span<const std::uint64_t> inodes) : owner_(owner), inodes_(inodes) {}

    void add(const BtrfsSearch::Item& found) {
        while (!inodes_.empty() && inodes_.front() < found.key.object)
            next();
        if (inodes_.empty() || inodes_.front() != found.key.object ||
            found.key.type != BTRFS_EXTENT_DATA_KEY || isDropped_)
            return;
        if (!isOpen_) {
            owner_.files_.push_back({.inode = found.key.object, .firstExtent = owner_.extents_.size()});
            isOpen_ = true;
        }
        if (!take(found))
            drop();
    }

    /// Where to go on. Folders and foreign files that lie between may be large.
    BtrfsKey resume(const BtrfsKey& last) {
        while (!inodes_.empty() && inodes_.front() < last.object)
            next();
        if (!inodes_.empty() && inodes_.front() == last.object &&
            (last.type > BTRFS_EXTENT_DATA_KEY || isDropped_))
            next();
        if (inodes_.empty())
            return last;
        const BtrfsKey wanted = {inodes_.front(), BTRFS_EXTENT_DATA_KEY, 0};
        if (wanted > last)
            return wanted;
        const bool isComplete =
            inodes_.size() == 1 && !owner_.search_.hadNoRoomFor(sizeof(btrfs_file_extent_item));
        return isComplete ? last : BtrfsSearch::following(last);
    }

private:
    void next() {
        inodes_ = inodes_.subspan(1);
        isOpen_ = isDropped_ = false;
    }

    void drop() {
        owner_.extents_.resize(owner_.files_.back().firstExtent);
        owner_.generations_.resize(owner_.extents_.size());
        owner_.files_.pop_back();
        isDropped_ = true;
    }

    /// False for what is not understood.
    bool take(const BtrfsSearch::Item& found) {
        const auto item = found.as<btrfs_file_extent_item>();
        File& file = owner_.files_.back();
        if (item.encryption != 0 || item.other_encoding != 0 || file.isInline ||
            owner_.extents_.size() >= largestExtentCount)
            return false;
        if (item.type == BTRFS_FILE_EXTENT_INLINE) {
            file.isInline = true;
            return file.length == 0 && found.key.offset == 0;
        }
        if (found.bytes.size() != sizeof item ||
            (item.type != BTRFS_FILE_EXTENT_REG && item.type != BTRFS_FILE_EXTENT_PREALLOC))
            return false;
        if (item.disk_bytenr == 0)
            return true;
        owner_.extents_.push_back(extentFrom(found.key, item));
        owner_.generations_.push_back(found.generation);
        ++file.extentCount;
        file.isEncoded |= item.compression != 0;
        file.isPreallocated |= item.type == BTRFS_FILE_EXTENT_PREALLOC;
        return !__builtin_add_overflow(file.length, owner_.extents_.back().length, &file.length);
    }

    BtrfsExtents& owner_;
    std::span<const std::uint64_t> inodes_; // from the one at hand on
    bool isOpen_ = false;                   // the last of the files is that of the first inode
    bool isDropped_ = false;                // there is to be none of it
};

bool BtrfsExtents::readTogether(int folder, std::int32_t device, std::span<const std::uint64_t> inodes) {
    files_.clear();
    extents_.clear();
    generations_.clear();
    if (inodes.empty() || search_.isRefused())
        return false;
    const BtrfsSubvolumes::Subvolume* const subvolume = subvolumes_.of(folder, device, search_);
    if (subvolume == nullptr)
        return false;
    // Before it is read who uses the extents, lest some be counted in between.
    const bool isSettled = subvolume->references->isSettled(folder, search_);
    readItems(folder, inodes);
    if (!readUsers(folder)) {
        files_.clear();
        return false;
    }
    for (File& file : files_)
        judge(file, *subvolume, isSettled);
    return !files_.empty();
}

void BtrfsExtents::readItems(int folder, std::span<const std::uint64_t> inodes) {
    const auto areNear = [](std::uint64_t inode, std::uint64_t next) { return next - inode <= nearInodes; };
    forEachRun(inodes, areNear, [&](std::size_t first, std::size_t end) {
        Collection collection(*this, inodes.subspan(first, end - first));
        const std::size_t fileCount = files_.size();
        const std::size_t extentCount = extents_.size();
        const bool isRead = search_.forEach(
            folder,
            {.first = {inodes[first], BTRFS_EXTENT_DATA_KEY, 0},
             .last = {inodes[end - 1], BTRFS_EXTENT_DATA_KEY, BtrfsKey::largestOffset}},
            [&](const BtrfsSearch::Item& item) { collection.add(item); },
            [&](const BtrfsKey& last) { return collection.resume(last); });
        if (!isRead) { // half a file is none
            files_.resize(fileCount);
            extents_.resize(extentCount);
            generations_.resize(extentCount);
        }
        return true;
    });
}

/// An item of the extent tree: how many references there are, and whose. Where not all of them have room in
/// the item, others follow it; then they are many.
void BtrfsExtents::fill(Users& users, const BtrfsSearch::Item& item) {
    const auto head = item.as<btrfs_extent_item>();
    const std::uint64_t count = le64toh(head.refs);
    if (item.bytes.size() < sizeof head || (le64toh(head.flags) & BTRFS_EXTENT_FLAG_DATA) == 0 || count == 0)
        return;
    if (count == 1)
        users.kind = Users::Kind::one;
    std::size_t place = sizeof head;
    while (place < item.bytes.size()) {
        const auto type = static_cast<std::uint8_t>(item.bytes[place]);
        if (type == ownerReference) {
            place += sizeof(btrfs_extent_inline_ref);
            continue;
        }
        if (type != BTRFS_EXTENT_DATA_REF_KEY) // by a leaf, whosoever that is
            break;
        const auto reference = item.as<btrfs_extent_data_ref>(place + 1);
        place += 1 + sizeof reference;
        const std::uint64_t tree = le64toh(reference.root);
        const std::uint64_t object = le64toh(reference.objectid);
        if (users.object != 0 && (users.tree != tree || users.object != object)) {
            users.kind = Users::Kind::several;
            break;
        }
        if (count > 1 && le32toh(reference.count) == count)
            users.kind = Users::Kind::oneFile;
        users.tree = tree;
        users.object = object;
    }
}

bool BtrfsExtents::readUsers(int folder) {
    users_.clear();
    for (const Extent& extent : extents_)
        users_.push_back({.start = extent.start, .end = extent.start + extent.lengthOnDisk});
    std::ranges::sort(users_, {}, &Users::start);
    const auto isRepetition = [](Users& first, const Users& next) {
        first.isRepeated |= first.start == next.start;
        return first.start == next.start;
    };
    users_.erase(std::unique(users_.begin(), users_.end(), isRepetition), users_.end());
    const auto areNear = [](const Users& users, const Users& next) {
        return next.start <= users.end || next.start - users.end <= nearBytes;
    };
    return forEachRun(users_, areNear, [&](std::size_t first, std::size_t end) {
        auto wanted = users_.begin() + static_cast<std::ptrdiff_t>(first);
        const auto wantedEnd = users_.begin() + static_cast<std::ptrdiff_t>(end);
        return search_.forEach(
            folder,
            {.tree = BTRFS_EXTENT_TREE_OBJECTID,
             .first = {wanted->start, BTRFS_EXTENT_ITEM_KEY, 0},
             .last = {users_[end - 1].start, BTRFS_EXTENT_ITEM_KEY, BtrfsKey::largestOffset}},
            [&](const BtrfsSearch::Item& item) {
                while (wanted != wantedEnd && wanted->start < item.key.object)
                    ++wanted;
                if (wanted != wantedEnd && wanted->start == item.key.object &&
                    item.key.type == BTRFS_EXTENT_ITEM_KEY)
                    fill(*wanted++, item);
            },
            [&](const BtrfsKey& last) {
                while (wanted != wantedEnd && wanted->start <= last.object)
                    ++wanted;
                return wanted == wantedEnd ? last : BtrfsKey{wanted->start, BTRFS_EXTENT_ITEM_KEY, 0};
            });
    });
}

const BtrfsExtents::Users* BtrfsExtents::users(std::uint64_t start) const {
    const auto found = std::ranges::lower_bound(users_, start, {}, &Users::start);
    return found != users_.end() && found->start == start ? &*found : nullptr;
}

/// As FIEMAP judges: an extent is shared when several files refer to it, or one does from a leaf that it has
/// in common with a snapshot. Which leaf that is cannot be seen, only when it was written. One file that
/// refers to an extent in several places shares it or not, as these places are.
void BtrfsExtents::judge(File& file, const BtrfsSubvolumes::Subvolume& subvolume, bool isSettled) {
    // What of it is about to be written, and has no place then, cannot be seen.
    if (file.isPreallocated)
        return;
    for (std::size_t index = file.firstExtent; index < file.firstExtent + file.extentCount; ++index) {
        Extent& extent = extents_[index];
        const Users* const known = users(extent.start);
        if (known == nullptr)
            return;
        const bool isNamed = known->tree == subvolume.tree && known->object == file.inode;
        switch (known->kind) {
        case Users::Kind::several:
            if (!isSettled)
                return;
            extent.isShared = true;
            continue;
        case Users::Kind::oneFile:
            if (!isSettled || !isNamed)
                return;
            break;
        case Users::Kind::one:
            // A leaf that a balance has written may be new and yet a snapshot's as well. Named for another
            // file, or met twice, it has been cloned since.
            if (known->isRepeated || (!isNamed && (known->object != 0 || subvolume.lastSnapshot != 0)))
                return;
            if (!isSettled &&
                !subvolume.references->hasNoOther(extent.start, isNamed, subvolume.tree, file.inode))
                return;
            break;
        case Users::Kind::unknown:
            return;
        }
        if (generations_[index] <= subvolume.lastSnapshot)
            return;
    }
    file.knowsShared = true;
}

const BtrfsExtents::File* BtrfsExtents::file(std::uint64_t inode) const {
    const auto found = std::ranges::lower_bound(files_, inode, {}, &File::inode);
    return found != files_.end() && found->inode == inode ? &*found : nullptr;
}

} // namespace tarnwell
