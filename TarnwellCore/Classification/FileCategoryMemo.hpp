#pragma once

// The category of a file from its name alone, for a scan: one worker meets the same few extensions a million
// times, mostly short ones.

#include "TarnwellCore/Classification/FileCategory.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarnwell {

/// Remembers answers for the life of a scan's worker. Confined to one thread.
class FileCategoryMemo {
public:
    /// By the tables of extensions and of bare names, then by the type database; no path rules. Never fails.
    FileCategory category(std::string_view name) {
        // The extension as it stands in the name, as one number; 0 while no dot was found.
        std::uint64_t key = 0;
        std::uint64_t bytes = 0;
        const std::size_t reach = name.size() < longestExtension + 1 ? name.size() : longestExtension + 1;
        for (std::size_t index = 1; index <= reach; ++index) {
            const char byte = name[name.size() - index];
            if (byte == '.') {
                key = bytes;
                break;
            }
            bytes = bytes << 8 | static_cast<unsigned char>(byte);
        }
        if (key == 0)
            return classify(name);
        Slot& slot = slots_[(key * 0x9E37'79B9'7F4A'7C15) >> (64 - slotBits)];
        if (slot.key != key)
            slot = {key, classify(name)};
        return slot.category;
    }

private:
    static constexpr std::size_t longestExtension = 8;
    static constexpr int slotBits = 12;

    /// An extension that comes to a slot displaces the one in it.
    struct Slot {
        std::uint64_t key = 0; // 0: free
        FileCategory category = {};
    };

    static FileCategory classify(std::string_view name);

    std::array<Slot, std::size_t{1} << slotBits> slots_;
};

} // namespace tarnwell
