#include "TarnwellTidyKit/Browser/Ordering.hpp"

#include "TarnwellCore/Text/CaseFolder.hpp"
#include "TarnwellTidyKit/Browser/BrowserPaths.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::array<std::string_view, sortKeyCount> names = {
    "size", "name", "items", "modified", "apparent", "allocated", "reclaimable", "change"};

/// What decides, as one number: a larger one comes first. In two halves, or four bytes more would be lost.
struct Item {
    std::uint32_t high;
    std::uint32_t low;
    std::uint32_t index;

    Item(std::uint64_t key, std::uint32_t entry)
        : high(static_cast<std::uint32_t>(key >> 32)), low(static_cast<std::uint32_t>(key)), index(entry) {}
    std::uint64_t key() const { return std::uint64_t{high} << 32 | low; }
};
static_assert(sizeof(Item) == 12);

std::uint64_t descending(std::int64_t value) {
    return static_cast<std::uint64_t>(value) ^ (std::uint64_t{1} << 63);
}

/// Eight bytes of a name, so that the first name has the largest number.
std::uint64_t nameKey(std::string_view name) {
    std::uint64_t key = 0;
    for (std::size_t place = 0; place < 8; ++place)
        key = key << 8 | (place < name.size() ? static_cast<unsigned char>(name[place]) : 0U);
    return ~key;
}

std::uint64_t keyOf(const BrowserEntry& entry, const OrderingChoice& choice, const std::string& place) {
    switch (choice.sort.key) {
    case SortKey::size:
        return descending(entry.sizeFor(choice.mode));
    case SortKey::name:
        return nameKey(entry.name);
    case SortKey::items:
        return descending(entry.itemCount());
    case SortKey::modified:
        // Whole milliseconds; what has no time comes last.
        return std::isfinite(entry.modificationSeconds) && std::abs(entry.modificationSeconds) < 1e15
                   ? descending(static_cast<std::int64_t>(entry.modificationSeconds * 1000))
                   : 0;
    case SortKey::apparent:
        return descending(entry.size);
    case SortKey::allocated:
        return descending(entry.allocatedSize);
    case SortKey::reclaimable:
        return descending(entry.reclaimableSize);
    case SortKey::change:
        // What is not known comes behind what has not changed, before what shrank.
        if (const auto change = changeOf(entry, place, choice))
            return *change == 0 ? descending(1) : descending(*change > 0 ? *change + 1 : *change);
        return descending(0);
    }
    return 0;
}

} // namespace

std::string_view rawValue(SortKey key) {
    return names[static_cast<std::size_t>(key)];
}

std::optional<SortKey> sortKeyFromRawValue(std::string_view text) {
    const auto found = std::ranges::find(names, text);
    return found == names.end() ? std::nullopt : std::optional(static_cast<SortKey>(found - names.begin()));
}

std::optional<std::int64_t> changeOf(const BrowserEntry& entry, const std::string& place,
                                     const OrderingChoice& choice) {
    if (!choice.earlier)
        return std::nullopt;
    const auto before = choice.earlier->sizeOf(joinedPath(place, entry.name), choice.mode);
    return before ? std::optional(entry.sizeFor(choice.mode) - *before) : std::nullopt;
}

bool passes(const OrderingChoice& choice, std::string_view name, FileNodeFlags flags) {
    if (!choice.showsHidden && flags.contains(FileNodeFlags::hidden))
        return false;
    CaseFolder folder;
    const std::string filter(folder.fold(choice.filter));
    return filter.empty() || folder.fold(name).find(filter) != std::string_view::npos;
}

Ordering ordered(const BrowserEntries& entries, const OrderingChoice& choice, const std::string& place,
                 const CancellationToken& token) {
    constexpr std::uint32_t between = 0xFFFF; // entries, from one look at the token to the next
    Ordering result;
    const auto count = static_cast<std::uint32_t>(entries.count());
    CaseFolder folder;
    const std::string filter(choice.filter.empty() ? std::string_view() : folder.fold(choice.filter));
    std::vector<Item> folders;
    std::vector<Item> items;
    items.reserve(choice.filter.empty() ? count : 0);
    for (std::uint32_t index = 0; index < count; ++index) {
        if ((index & between) == between && token.isCancelled())
            break;
        if (entries.isGone(index))
            continue;
        const BrowserEntry entry = entries.at(index);
        if (!choice.showsHidden && entry.flags.contains(FileNodeFlags::hidden))
            continue;
        if (!filter.empty() && folder.fold(entry.name).find(filter) == std::string_view::npos)
            continue;
        const std::int64_t size = entry.sizeFor(choice.mode);
        result.largest = std::max(result.largest, size);
        if (!entry.flags.contains(FileNodeFlags::hardlinkDuplicate))
            result.total += size;
        (choice.sort.foldersFirst && entry.isDirectory ? folders : items)
            .emplace_back(keyOf(entry, choice, place), index);
    }
    const auto put = [&](std::vector<Item>& group) {
        const bool isByName = choice.sort.key == SortKey::name;
        const auto precedes = [&](const Item& a, const Item& b) {
            if (a.key() != b.key())
                return a.key() > b.key();
            if (isByName) {
                const std::string_view one = entries.at(a.index).name;
                const std::string_view other = entries.at(b.index).name;
                if (one != other)
                    return one < other;
            }
            return a.index < b.index;
        };
        if (!std::ranges::is_sorted(group, precedes))
            std::ranges::sort(group, precedes);
        if (choice.sort.isReversed)
            std::ranges::reverse(group);
        for (const Item& item : group)
            result.rows.push_back(item.index);
    };
    result.rows.reserve(folders.size() + items.size());
    put(folders);
    put(items);
    return result;
}

} // namespace tarnwell
