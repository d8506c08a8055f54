#pragma once

// In which order the entries of a folder are shown, and which of them.
//
// A folder may hold a million entries. An order takes 4 bytes an entry; while it is made, 12 more.

#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"
#include "TarnwellTidyKit/Browser/BrowserEntries.hpp"
#include "TarnwellTidyKit/Browser/EarlierSizes.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarnwell {

enum class SortKey : std::uint8_t { size, name, items, modified, apparent, allocated, reclaimable, change };
inline constexpr std::size_t sortKeyCount = 8;

/// "size", "name", …; in the order of the enumeration.
std::string_view rawValue(SortKey key);
std::optional<SortKey> sortKeyFromRawValue(std::string_view text);

struct SortChoice {
    SortKey key = SortKey::size;
    /// Largest, newest or "a" first; reversed the other way.
    bool isReversed = false;
    bool foldersFirst = false;

    bool operator==(const SortChoice&) const = default;
};

/// What an order depends on, beside the entries.
struct OrderingChoice {
    SortChoice sort;
    SizeMode mode = SizeMode::apparent;
    bool showsHidden = true;
    /// Only names that hold this, in any letter case.
    std::string filter;
    /// Null without a snapshot to compare with.
    std::shared_ptr<const EarlierSizes> earlier;

    bool operator==(const OrderingChoice&) const = default;
};

struct Ordering {
    /// Numbers of entries, in their order.
    std::vector<std::uint32_t> rows;
    /// In the size mode, of those.
    std::int64_t largest = 0;
    /// The sums of those in the size mode.
    std::int64_t total = 0;
};

/// `place` is the folder's path relative to the root of the scan. What is undecided stands in the order of
/// the entries. Once cancelled, ends soon with some of the rows.
Ordering ordered(const BrowserEntries& entries, const OrderingChoice& choice, const std::string& place,
                 const CancellationToken& token = {});

/// Whether an entry is among the rows, by its name and flags.
bool passes(const OrderingChoice& choice, std::string_view name, FileNodeFlags flags);

/// What the entry has gained since the snapshot; nothing when that does not tell.
std::optional<std::int64_t> changeOf(const BrowserEntry& entry, const std::string& place,
                                     const OrderingChoice& choice);

} // namespace tarnwell
