#pragma once

// Items of the trees in which btrfs keeps everything (BTRFS_IOC_TREE_SEARCH_V2), which the kernel shows to
// those with CAP_SYS_ADMIN. Formats: <linux/btrfs_tree.h>.

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <span>

namespace tarnwell {

/// Items of a tree are sorted by it.
struct BtrfsKey {
    std::uint64_t object = 0;
    std::uint8_t type = 0;
    std::uint64_t offset = 0;

    static constexpr std::uint64_t largestOffset = std::numeric_limits<std::uint64_t>::max();

    auto operator<=>(const BtrfsKey&) const = default;
};

/// Confined to one thread.
class BtrfsSearch {
public:
    /// A slice of one tree.
    struct Range {
        std::uint64_t tree = 0; // 0: the one of the subvolume that the file is in
        BtrfsKey first = {};
        BtrfsKey last = {};                 // included
        std::uint64_t oldestGeneration = 0; // leaves that were last written before are left out
    };
    struct Item {
        BtrfsKey key;
        std::uint64_t generation; // in which the leaf that it lies in was written last
        std::span<const std::byte> bytes;

        /// The beginning of the item, or of what follows `skipped` bytes; where it is shorter, zeros.
        template <class Value>
        Value as(std::size_t skipped = 0) const {
            Value value = {};
            if (skipped < bytes.size())
                std::memcpy(&value, bytes.data() + skipped, std::min(sizeof value, bytes.size() - skipped));
            return value;
        }
    };

    /// Calls `body(const Item&)` for the items of a range in their order: of every kind that lies between,
    /// for a range is one of whole keys. As often as an answer was full, `resume(const BtrfsKey& last)` gives
    /// the key to go on from, greater than that; one beyond the range ends the search. False when the kernel
    /// does not tell everything.
    template <class Body, class Resume>
    bool forEach(int file, Range range, Body&& body, Resume&& resume) {
        while (range.first <= range.last) {
            if (!find(file, range))
                return false;
            if (left_ == 0)
                return true;
            Item item;
            while (left_ > 0) {
                if (!take(item))
                    return false;
                body(item);
            }
            const BtrfsKey next = resume(item.key);
            if (next <= item.key) // behind the last key of all
                return true;
            range.first = next;
        }
        return true;
    }
    /// The key right behind another.
    static BtrfsKey following(const BtrfsKey& key);

    /// Whether the answer at hand ended before another item of `length` bytes could have followed.
    bool hadNoRoomFor(std::size_t length) const;

    /// The kernel shows this process no tree. For ever: privileges do not come back.
    bool isRefused() const { return isRefused_; }

private:
    static constexpr std::size_t bufferSize = 65536; // an item is never larger

    bool find(int file, const Range& range);
    bool take(Item& item);

    bool isRefused_ = false;
    std::unique_ptr<std::byte[]> arguments_;
    std::uint32_t left_ = 0; // items of the answer
    std::size_t offset_ = 0; // of the next one
};

} // namespace tarnwell
