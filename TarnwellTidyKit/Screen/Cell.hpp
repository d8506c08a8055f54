#pragma once

// One place on the screen, one column wide: what is drawn there and how.

#include "TarnwellTidyKit/Screen/Role.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarnwell {

class Cell {
public:
    /// One character and the accents on it. Longer ones lose their last accents.
    static constexpr std::size_t capacity = 20;

    Style style;

    /// UTF-8 of a character that can be seen, with accents; never a control character, never broken. Empty
    /// for the second column of a wide character.
    std::string_view text() const { return {bytes_.data(), size_}; }
    /// 1, 2, or 0 for the second column of the wide character to the left, which has the same style.
    int columns() const { return columns_; }

    friend bool operator==(const Cell&, const Cell&) = default;

private:
    friend class Grid;

    std::array<char, capacity> bytes_ = {' '}; // zeros from `size_` on, so that equality is that of the bytes
    std::uint8_t size_ = 1;
    std::uint8_t columns_ = 1;
};

} // namespace tarnwell
