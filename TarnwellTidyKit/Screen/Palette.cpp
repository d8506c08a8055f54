#include "TarnwellTidyKit/Screen/Palette.hpp"

#include "TarnwellCore/Classification/FileCategory.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace tarnwell {

namespace {

struct Colour {
    int red = 0;
    int green = 0;
    int blue = 0;
};

constexpr int noColour = -1;

/// A role on a dark and on a light ground: 0xRRGGBB or `noColour`, and one of the sixteen that all terminals
/// have, which look well on both (their owners choose them).
struct RoleColours {
    int dark;
    int light;
    int ansi;
};

constexpr std::array<RoleColours, static_cast<std::size_t>(Role::accent)> roleColours{{
    {noColour, noColour, noColour}, // ground
    {noColour, noColour, noColour}, // text
    {0x8A919C, 0x6B7280, 8},        // dim
    {0xB8C4D6, 0x334155, noColour}, // heading
    {0x87AFFF, 0x1D4ED8, 4},        // link
    {0xFF7A7A, 0xC81E1E, 1},        // danger
    {0xE5B567, 0x9A5B00, 3},        // warning
    {0x8FCF7F, 0x1F7A34, 2},        // good
    {0xFFD75F, 0x9A5B00, 3},        // match
    {0x5F87AF, 0x5F87AF, 6},        // bar
    {0x2E323A, 0xE2E6EC, noColour}, // barTrack
    {0x4B5563, 0xC3C9D2, 8},        // rule
    {0xD0D7E2, 0x1F2937, noColour}, // key
    {0x8A919C, 0x6B7280, 8},        // keyText
    {noColour, noColour, noColour}, // input
    {0x9FB4C7, 0x475569, 6},        // status
    {0xE8A15D, 0xC2570C, 3},        // heat0
    {0xC9A27A, 0xA16207, 2},        // heat1
    {0x9AA3A8, 0x5B6770, 6},        // heat2
    {0x6F93B5, 0x38709F, 4},        // heat3
    {0x5274B0, 0x1E4FA3, 5},        // heat4
}};

constexpr int selectionDark = 0x2C3B55;
constexpr int selectionDark256 = 0x4E4E4E;
constexpr int selectionLight = 0xCFE0FF;
constexpr int inputDark = 0x23272F;
constexpr int inputLight = 0xEEF1F5;

// Video, audio, images … as FileCategory counts: the nearest of the sixteen, with neighbours told apart.
constexpr std::array<int, accentCount> accentANSI = {5, 13, 14, 12, 10, 3, 9, 4,  11, 6,
                                                     7, 7,  8,  14, 13, 1, 2, 12, 8,  6};

Colour split(int rgb) {
    return {rgb >> 16 & 0xFF, rgb >> 8 & 0xFF, rgb & 0xFF};
}

int join(Colour colour) {
    return colour.red << 16 | colour.green << 8 | colour.blue;
}

int mixed(int rgb, int other, double share) {
    const Colour a = split(rgb);
    const Colour b = split(other);
    const auto mix = [share](int x, int y) { return static_cast<int>(std::lround(x + (y - x) * share)); };
    return join({mix(a.red, b.red), mix(a.green, b.green), mix(a.blue, b.blue)});
}

bool isLight(int rgb) {
    const Colour colour = split(rgb);
    return 299 * colour.red + 587 * colour.green + 114 * colour.blue > 128'000;
}

/// The nearest of the 240 colours that 256-colour terminals agree upon: a cube of six steps a channel, and
/// greys.
int nearestOf256(int rgb) {
    constexpr std::array<int, 6> steps = {0, 95, 135, 175, 215, 255};
    const Colour wanted = split(rgb);
    const auto square = [](int value) { return value * value; };
    const auto distance = [&](int red, int green, int blue) {
        return square(red - wanted.red) + square(green - wanted.green) + square(blue - wanted.blue);
    };
    const auto step = [&](int channel) {
        const auto* nearest =
            std::ranges::min_element(steps, {}, [channel](int value) { return std::abs(value - channel); });
        return static_cast<int>(nearest - steps.begin());
    };
    const int red = step(wanted.red);
    const int green = step(wanted.green);
    const int blue = step(wanted.blue);
    const auto value = [&](int index) { return steps[static_cast<std::size_t>(index)]; };
    int best = 16 + 36 * red + 6 * green + blue;
    int least = distance(value(red), value(green), value(blue));
    for (int grey = 0; grey < 24; ++grey)
        if (const int level = 8 + 10 * grey; distance(level, level, level) < least) {
            least = distance(level, level, level);
            best = 232 + grey;
        }
    return best;
}

bool isAccent(Role role) {
    return role >= Role::accent;
}

std::size_t accentNumber(Role role) {
    return (static_cast<std::size_t>(role) - static_cast<std::size_t>(Role::accent)) % accentCount;
}

/// The role's colour in full. The same as letters and behind them: halves of a cell may belong to one tile.
int fullColour(Role role, bool isDark) {
    if (isAccent(role)) {
        const auto channels = rgb(allFileCategories()[accentNumber(role)]);
        const int own = join({channels[0], channels[1], channels[2]});
        return mixed(own, isDark ? 0x101418 : 0x000000, 0.15);
    }
    const RoleColours& colours = roleColours[static_cast<std::size_t>(role)];
    return isDark ? colours.dark : colours.light;
}

int ansiColour(Role role) {
    return isAccent(role) ? accentANSI[accentNumber(role)] : roleColours[static_cast<std::size_t>(role)].ansi;
}

/// Weights that tell roles apart where colours do not.
Paint weighed(const Style& style, bool hasColours) {
    Paint paint;
    paint.isBold = style.isBold || style.role == Role::heading || style.role == Role::key ||
                   style.role == Role::match ||
                   (!hasColours && (style.isMarked || style.role == Role::danger));
    paint.isUnderlined = style.role == Role::match || (!hasColours && style.isMarked);
    paint.isDim = !hasColours && (style.role == Role::dim || style.role == Role::rule);
    return paint;
}

} // namespace

Paint Palette::paint(const Style& style) const {
    Paint paint = weighed(style, colours_ > 0);
    const bool isTile = style.fill != Role::ground && style.fill != Role::barTrack;
    if (colours_ == 0) {
        paint.isReverse = style.isSelected != isTile;
        return paint;
    }
    if (colours_ < 256) {
        paint.foreground = ansiColour(style.role);
        paint.isReverse = style.isSelected && !isTile;
        if (style.isMarked && style.role == Role::text)
            paint.foreground = 3;
        if (isTile) {
            const int fill = ansiColour(style.fill);
            paint.background = style.isSelected ? 7 : fill;
            if (style.role == Role::text || style.isSelected)
                paint.foreground = 0;
        }
        if (paint.isReverse && style.role != Role::bar && !isAccent(style.role))
            paint.foreground = Paint::none; // grey on grey cannot be read
        if (colours_ < 16) {
            // Grey is not among the eight; the others are their darker sisters.
            paint.foreground = paint.foreground == 8  ? Paint::none
                               : paint.foreground < 0 ? -1
                                                      : paint.foreground & 7;
            paint.background = paint.background == 8 ? 7 : paint.background < 0 ? -1 : paint.background & 7;
        }
        return paint;
    }
    // A tile that is chosen shines.
    const auto chosen = [this](int rgb) { return mixed(rgb, isDark_ ? 0xFFFFFF : 0x000000, 0.4); };
    int foreground = fullColour(style.role, isDark_);
    int background = fullColour(style.fill, isDark_);
    if (isTile && style.isSelected) {
        background = chosen(background);
        foreground = foreground == noColour ? noColour : chosen(foreground);
    }
    if (isTile && background != noColour && style.role == Role::text)
        foreground = isLight(background) ? 0x0B1120 : 0xFFFFFF;
    else if (style.isMarked && (style.role == Role::text || style.role == Role::link))
        foreground = fullColour(Role::warning, isDark_);
    if (!isTile && style.isSelected)
        background = isDark_ ? selectionDark : selectionLight;
    else if (style.role == Role::input && style.fill == Role::ground)
        background = isDark_ ? inputDark : inputLight;
    // A dim text on the bar of the selection would be hard to read.
    if (style.isSelected && !isTile && (style.role == Role::dim || style.role == Role::rule))
        foreground = isDark_ ? 0xB6BECB : 0x475569;
    const auto number = [this](int rgb) {
        if (rgb == noColour || colours_ > 256)
            return rgb;
        // The nearest one is the empty part of a bar.
        return nearestOf256(rgb == selectionDark ? selectionDark256 : rgb);
    };
    paint.foreground = number(foreground);
    paint.background = number(background);
    return paint;
}

} // namespace tarnwell
