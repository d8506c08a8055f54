#pragma once

// Identities that are unique without anyone handing them out: 128 bits, random.

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwell {

/// A value; ordered as its text is.
struct UUID {
    std::array<std::uint8_t, 16> bytes{};

    bool operator==(const UUID&) const = default;
    // The library of Xcode 15 has no three-way comparison of arrays.
    std::strong_ordering operator<=>(const UUID& other) const {
        return std::memcmp(bytes.data(), other.bytes.data(), bytes.size()) <=> 0;
    }

    /// The canonical text: upper-case hexadecimal, 8-4-4-4-12 digits with hyphens between.
    std::string text() const;

    /// The value of a canonical text, in either letter case.
    static std::optional<UUID> parse(std::string_view text);

    /// A new random (version 4) value. Safe from any thread and after a fork.
    static UUID random();
};

} // namespace tarnwell
