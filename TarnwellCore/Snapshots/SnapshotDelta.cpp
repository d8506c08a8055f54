#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>
#include <utility>

namespace tarnwell {

namespace {

using Change = SnapshotDelta::Change;
using Entry = ScanSnapshot::Entry;

/// How much of a change a folder above has to show to stand for it.
constexpr double nestingShare = 0.8;

std::int64_t difference(std::int64_t after, std::int64_t before) {
    std::int64_t result = 0;
    if (!__builtin_sub_overflow(after, before, &result))
        return result;
    // Sizes of a foreign file may be anything.
    return after < 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
}

/// One path of either snapshot.
struct Item {
    std::string_view path;
    /// The first entry of this path on each side; null where there is none.
    const Entry* before = nullptr;
    const Entry* after = nullptr;
    std::int64_t sizeBefore = 0;
    std::int64_t sizeAfter = 0;
    std::int64_t delta = 0;
    bool isKept = false;
    bool isNested = false;
    Change::Kind kind = Change::Kind::grew;
};

/// The items of two snapshots by path: those of `before` in its order, then those that only `after` has. One
/// table with open addressing serves every question; a table a snapshot costs twice the time.
class Items {
public:
    Items(const std::vector<Entry>& before, const std::vector<Entry>& after) {
        const std::size_t most = before.size() + after.size();
        items_.reserve(most);
        slots_.resize(std::bit_ceil(2 * most + 1));
        for (const Entry& entry : before)
            addFirst(&Item::before, entry);
        for (const Entry& entry : after)
            addFirst(&Item::after, entry);
    }

    std::vector<Item>& all() { return items_; }

    const Item* find(std::string_view path) const {
        const Slot& slot = slots_[slotOf(path, hash(path))];
        return slot.number == 0 ? nullptr : &items_[slot.number - 1];
    }

private:
    struct Slot {
        std::uint32_t hash = 0;
        /// The item's index plus 1; 0 for a free slot.
        std::uint32_t number = 0;
    };

    static std::size_t hash(std::string_view path) { return std::hash<std::string_view>()(path); }

    void addFirst(const Entry* Item::* side, const Entry& entry) {
        const std::size_t pathHash = hash(entry.path);
        Slot& slot = slots_[slotOf(entry.path, pathHash)];
        if (slot.number == 0) {
            items_.push_back({.path = entry.path});
            slot = {static_cast<std::uint32_t>(pathHash), static_cast<std::uint32_t>(items_.size())};
        }
        const Entry*& place = items_[slot.number - 1].*side;
        if (place == nullptr)
            place = &entry;
    }

    /// The slot of this path, or the free one where it belongs. Half of the slots are free at least.
    std::size_t slotOf(std::string_view path, std::size_t pathHash) const {
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t index = pathHash & mask;; index = (index + 1) & mask) {
            const Slot& slot = slots_[index];
            if (slot.number == 0 ||
                (slot.hash == static_cast<std::uint32_t>(pathHash) && items_[slot.number - 1].path == path))
                return index;
        }
    }

    std::vector<Item> items_;
    std::vector<Slot> slots_;
};

class Comparison {
public:
    /// The snapshots must outlive this.
    Comparison(const ScanSnapshot& before, const ScanSnapshot& after, std::int64_t threshold, SizeMode mode)
        : floorBefore_(before.minimumSize),
          floorAfter_(after.minimumSize),
          mode_(mode),
          items_(before.entries, after.entries) {
        for (Item& item : items_.all()) {
            item.sizeBefore = sizeOf(item.before);
            item.sizeAfter = sizeOf(item.after);
            item.delta = difference(item.sizeAfter, item.sizeBefore);
            item.isKept = threshold <= 0 || magnitude(item.delta) >= static_cast<std::uint64_t>(threshold);
            if (item.isKept)
                noteLength(item.path.size());
        }
    }

    /// In their final order.
    std::vector<Change> changes() {
        struct Rank {
            std::uint64_t magnitude;
            std::string_view path;
            const Item* item;
        };
        std::vector<Rank> ranks;
        // Everything is looked up in the order of the items: neighbours share their folders, which are then
        // in the processor's caches.
        for (Item& item : items_.all())
            if (item.isKept) {
                item.kind = kindOf(item);
                item.isNested = isNested(item);
                ranks.push_back({magnitude(item.delta), item.path, &item});
            }
        std::ranges::sort(ranks, [](const Rank& a, const Rank& b) {
            return a.magnitude != b.magnitude ? a.magnitude > b.magnitude : a.path < b.path;
        });
        std::vector<Change> changes;
        changes.reserve(ranks.size());
        for (const Rank& rank : ranks)
            changes.push_back({.path = std::string(rank.path),
                               .kind = rank.item->kind,
                               .before = rank.item->sizeBefore,
                               .after = rank.item->sizeAfter,
                               .delta = rank.item->delta,
                               .isNested = rank.item->isNested});
        return changes;
    }

private:
    std::int64_t sizeOf(const Entry* entry) const { return entry ? entry->sizeFor(mode_) : 0; }

    Change::Kind kindOf(const Item& item) const {
        if (item.before && item.after)
            return item.delta >= 1 ? Change::Kind::grew : Change::Kind::shrank;
        if (item.before)
            return wasTooSmall(item, floorAfter_) ? Change::Kind::belowThreshold : Change::Kind::removed;
        return wasTooSmall(item, floorBefore_) ? Change::Kind::belowThreshold : Change::Kind::added;
    }

    /// Whether an item only fell through the floor of the snapshot that lacks it: its folder holds the same
    /// number of files in both.
    bool wasTooSmall(const Item& item, std::int64_t floor) const {
        if (floor < 1 || item.path.empty())
            return false;
        const std::size_t slash = item.path.rfind('/');
        const Item* const parent = items_.find(item.path.substr(0, slash == item.path.npos ? 0 : slash));
        return parent && parent->before && parent->after &&
               parent->before->fileCount == parent->after->fileCount;
    }

    /// Whether a kept change above stands for this one. Walks up the path: an ancestor ends before a "/" of
    /// it, and the root is above every other path.
    bool isNested(const Item& item) const {
        const double leastMagnitude = nestingShare * static_cast<double>(magnitude(item.delta));
        const auto isToldBy = [&](std::string_view ancestor) {
            if (!isKeptLength(ancestor.size()))
                return false;
            const Item* const other = items_.find(ancestor);
            return other && other->isKept && (other->delta >= 1) == (item.delta >= 1) &&
                   static_cast<double>(magnitude(other->delta)) >= leastMagnitude;
        };
        for (std::size_t end = item.path.rfind('/'); end != item.path.npos && end > 0;
             end = item.path.rfind('/', end - 1))
            if (isToldBy(item.path.substr(0, end)))
                return true;
        return !item.path.empty() && isToldBy({});
    }

    /// Only paths of the lengths of kept ones are looked up, so that one of nothing but slashes costs little.
    void noteLength(std::size_t length) {
        if (keptLengths_.size() <= length)
            keptLengths_.resize(length + 1);
        keptLengths_[length] = true;
    }
    bool isKeptLength(std::size_t length) const {
        return length < keptLengths_.size() && keptLengths_[length];
    }

    const std::int64_t floorBefore_;
    const std::int64_t floorAfter_;
    const SizeMode mode_;
    Items items_;
    std::vector<bool> keptLengths_;
};

} // namespace

SnapshotDelta SnapshotDelta::compare(ScanSnapshot before, ScanSnapshot after, std::int64_t threshold,
                                     SizeMode sizeMode) {
    SnapshotDelta delta;
    delta.before = std::move(before);
    delta.after = std::move(after);
    delta.changes = Comparison(delta.before, delta.after, threshold, sizeMode).changes();
    delta.totalChange = difference(delta.after.totalSizeFor(sizeMode), delta.before.totalSizeFor(sizeMode));
    delta.rootsMatch = delta.before.rootPath == delta.after.rootPath;
    return delta;
}

std::string_view rawValue(SnapshotDelta::Change::Kind kind) {
    switch (kind) {
    case Change::Kind::grew:
        return "grew";
    case Change::Kind::shrank:
        return "shrank";
    case Change::Kind::added:
        return "added";
    case Change::Kind::removed:
        return "removed";
    case Change::Kind::belowThreshold:
        return "belowThreshold";
    }
    return "grew";
}

} // namespace tarnwell
