#pragma once

// Which of an item's three sizes a consumer looks at.

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

enum class SizeMode : std::uint8_t {
    apparent,    ///< the logical size
    allocated,   ///< the bytes allocated on disk
    reclaimable, ///< the bytes that deleting the item would free
};

/// "apparent", "allocated" or "reclaimable".
constexpr std::string_view rawValue(SizeMode mode) {
    switch (mode) {
    case SizeMode::apparent:
        return "apparent";
    case SizeMode::allocated:
        return "allocated";
    case SizeMode::reclaimable:
        return "reclaimable";
    }
    return "apparent";
}

/// The mode of exactly this name.
constexpr std::optional<SizeMode> sizeModeFromRawValue(std::string_view text) {
    for (const SizeMode mode : {SizeMode::apparent, SizeMode::allocated, SizeMode::reclaimable})
        if (rawValue(mode) == text)
            return mode;
    return std::nullopt;
}

} // namespace tarnwell
