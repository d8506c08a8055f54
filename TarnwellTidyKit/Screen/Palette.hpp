#pragma once

// Which colours and weights a style becomes on a terminal of so many colours, dark or light, or without any.

#include "TarnwellTidyKit/Screen/Role.hpp"

#include <cstdint>

namespace tarnwell {

/// What a terminal is asked for.
struct Paint {
    /// The number of a colour on this terminal: of its table, or 0xRRGGBB where it has 1 << 24; `none` for
    /// the terminal's own.
    int foreground = none;
    int background = none;
    bool isBold = false;
    bool isDim = false;
    bool isReverse = false;
    bool isUnderlined = false;
    static constexpr int none = -1;
    friend bool operator==(const Paint&, const Paint&) = default;
};

class Palette {
public:
    /// `colours` as `ScreenAbilities` has it.
    Palette(int colours, bool isDark) : colours_(colours), isDark_(isDark) {}

    Paint paint(const Style& style) const;

private:
    int colours_;
    bool isDark_;
};

} // namespace tarnwell
