#pragma once

// Constant lists of names and the lookup made of them. A scan asks several of these tables about every
// entry, on all its threads at once: they are laid out by the compiler, so there is nothing to
// initialise, to lock or to allocate.

#include "TarnwellCore/Classification/FileCategory.hpp"

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>

namespace tarnwell {

/// A constant list of names, written as ("a", "b").
class NameList {
public:
    template <std::convertible_to<std::string_view>... Names>
    consteval NameList(Names... names) : names_{names...}, size_(sizeof...(names)) {}

    constexpr const std::string_view* begin() const { return names_.data(); }
    constexpr const std::string_view* end() const { return names_.data() + size_; }
    constexpr std::size_t size() const { return size_; }

private:
    std::array<std::string_view, 88> names_; // as many as the longest list has
    std::size_t size_;
};

/// Names that all mean the same category.
struct CategoryNames {
    FileCategory category;
    NameList names;
};

/// Categories by name, exact in every byte. `slotCount` is a power of two, best three times the number of
/// names: then the answer "not here", the usual one, mostly costs a single read of eight bytes.
template <std::size_t slotCount>
class NameTable {
public:
    static constexpr std::size_t longestName = 24;

    /// Enters the rows from first to last; a name that is there already takes the later category.
    consteval explicit NameTable(std::span<const CategoryNames> rows) {
        for (const CategoryNames& row : rows)
            for (const std::string_view name : row.names)
                insert(name, row.category);
    }

    constexpr std::optional<FileCategory> find(std::string_view name) const {
        const std::size_t slot = slotOf(name);
        if (heads_[slot] == 0)
            return std::nullopt;
        return rests_[slot].category;
    }

private:
    static constexpr std::size_t headLength = 8;

    struct Rest {
        std::array<char, longestName - headLength> tail = {};
        std::uint8_t length = 0;
        FileCategory category = {};
    };

    /// The first eight bytes as one number, short names padded with zeros; never 0 for a name without NUL.
    static constexpr std::uint64_t headOf(std::string_view name) {
        std::uint64_t head = 0;
        for (std::size_t index = 0; index < name.size() && index < headLength; ++index)
            head |= std::uint64_t{static_cast<unsigned char>(name[index])} << (8 * index);
        return head;
    }

    /// The slot that holds the name, else the free one where it would be. Names of equal hash are in
    /// neighbouring slots.
    constexpr std::size_t slotOf(std::string_view name) const {
        static_assert((slotCount & (slotCount - 1)) == 0);
        const std::uint64_t head = headOf(name);
        const std::uint64_t hash = head * 0x9E37'79B9'7F4A'7C15; // mixes best into the upper bits
        std::size_t slot = static_cast<std::size_t>(hash >> 40) & (slotCount - 1);
        while (heads_[slot] != 0 && !(heads_[slot] == head && holds(slot, name)))
            slot = (slot + 1) & (slotCount - 1);
        return slot;
    }

    constexpr bool holds(std::size_t slot, std::string_view name) const {
        const Rest& rest = rests_[slot];
        if (name.size() != rest.length)
            return false;
        return name.size() <= headLength ||
               name.substr(headLength) == std::string_view(rest.tail.data(), name.size() - headLength);
    }

    consteval void insert(std::string_view name, FileCategory category) {
        if (name.empty() || name.size() > longestName)
            throw std::length_error("name does not fit the table");
        const std::size_t slot = slotOf(name);
        if (heads_[slot] == 0 && 2 * ++count_ > slotCount)
            throw std::length_error("too many names for the table");
        heads_[slot] = headOf(name);
        Rest& rest = rests_[slot];
        rest.length = static_cast<std::uint8_t>(name.size());
        rest.category = category;
        for (std::size_t index = headLength; index < name.size(); ++index)
            rest.tail[index - headLength] = name[index];
    }

    std::array<std::uint64_t, slotCount> heads_ = {}; // 0: free
    std::array<Rest, slotCount> rests_ = {};
    std::size_t count_ = 0;
};

} // namespace tarnwell
