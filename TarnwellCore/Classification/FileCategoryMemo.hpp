#pragma once

// The category of a file from its name alone, for a scan: one worker meets the same few extensions a million
// times, mostly short ones.

#include "TarnwellCore/Classification/FileCategory.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace tarnwell {

/// Remembers answers for the life of a scan's worker. Confined to one thread.
class FileCategoryMemo {
public:
    /// By the tables of extensions and of bare names, then by the type database; no path rules. Never fails.
    FileCategory category(std::string_view name) {
        const std::uint64_t key = shortExtension(name);
        if (key == 0)
            return classify(name);
        Slot& slot = slots_[(key * 0x9E37'79B9'7F4A'7C15) >> (64 - slotBits)];
        if (slot.key != key)
            slot = {key, classify(name)};
        return slot.category;
    }

private:
    static constexpr int slotBits = 12;

    /// An extension that comes to a slot displaces the one in it.
    struct Slot {
        std::uint64_t key = 0; // 0: free
        FileCategory category = {};
    };

    /// An extension of up to seven bytes as it stands in the name, as one number; 0 for any other.
    static std::uint64_t shortExtension(std::string_view name) {
        // Where the dot is differs from name to name, so that a loop would end by surprise every time: the
        // last eight bytes are looked at together, the last one as the highest.
        std::uint64_t bytes = 0;
        if (name.size() >= sizeof bytes && std::endian::native == std::endian::little)
            std::memcpy(&bytes, name.data() + name.size() - sizeof bytes, sizeof bytes);
        else
            for (std::size_t index = name.size() - std::min(name.size(), sizeof bytes); index < name.size();
                 ++index)
                bytes = bytes >> 8 | std::uint64_t{static_cast<unsigned char>(name[index])} << 56;
        constexpr std::uint64_t lowBits = 0x7F7F'7F7F'7F7F'7F7F;
        const std::uint64_t difference = bytes ^ 0x2E2E'2E2E'2E2E'2E2E;
        const std::uint64_t dots = ~(((difference & lowBits) + lowBits) | difference | lowBits);
        // The bits of the bytes after the last dot; the highest bit of a byte marks it as one.
        return dots == 0 ? 0 : bytes & ~(~std::uint64_t{0} >> std::countl_zero(dots));
    }

    static FileCategory classify(std::string_view name);

    std::array<Slot, std::size_t{1} << slotBits> slots_;
};

} // namespace tarnwell
