#pragma once

// Byte counts never wrap: a sum that does not fit ends the program with a message.

#include "TarnwellCore/Platform/FatalError.hpp"

#include <concepts>
#include <cstdint>
#include <type_traits>

namespace tarnwell {

/// `a + b`; a fatal error when the sum does not fit the type.
template <std::signed_integral Integer>
constexpr Integer checkedAdd(Integer a, Integer b) {
    Integer sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) [[unlikely]]
        fatalError("a sum of sizes or counts does not fit its integer");
    return sum;
}

/// `a - b`; a fatal error when the difference does not fit the type.
template <std::signed_integral Integer>
constexpr Integer checkedSubtract(Integer a, Integer b) {
    Integer difference = 0;
    if (__builtin_sub_overflow(a, b, &difference)) [[unlikely]]
        fatalError("a difference of sizes or counts does not fit its integer");
    return difference;
}

/// Without its sign; unsigned, since the least number has no positive counterpart of its type.
constexpr std::uint64_t magnitude(std::int64_t value) {
    return value < 0 ? static_cast<std::uint64_t>(-(value + 1)) + 1 : static_cast<std::uint64_t>(value);
}

/// Adds `amount` to `total`, checked.
template <std::signed_integral Integer>
constexpr void addChecked(Integer& total, std::type_identity_t<Integer> amount) {
    total = checkedAdd(total, amount);
}

} // namespace tarnwell
