#pragma once

// Points and rectangles for viewers, with the conventions of the platform's own graphics types: the origin
// is the minimum corner, a rectangle of negative width or height stands for the same area with its origin
// moved, and the minimum edges belong to a rectangle while the maximum edges do not.

#include <algorithm>
#include <limits>

namespace tarnwell {

struct Point {
    double x = 0;
    double y = 0;

    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;

    bool operator==(const Size&) const = default;
};

struct Rect {
    /// As stored; `minX()` to `maxY()`, `width()` and `height()` are those of the standardised rectangle.
    Point origin;
    Size size;

    constexpr Rect() = default;
    constexpr Rect(Point corner, Size extent) : origin(corner), size(extent) {}
    constexpr Rect(double x, double y, double width, double height) : origin{x, y}, size{width, height} {}

    /// The rectangle that is nowhere: what is left when more is taken off than there is.
    static constexpr Rect null() {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        return {infinity, infinity, 0, 0};
    }

    constexpr bool isNull() const {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        return origin.x == infinity || origin.y == infinity;
    }

    constexpr double minX() const { return standardized().origin.x; }
    constexpr double minY() const { return standardized().origin.y; }
    constexpr double maxX() const { return minX() + width(); }
    constexpr double maxY() const { return minY() + height(); }
    constexpr double width() const { return size.width < 0 ? -size.width : size.width; }
    constexpr double height() const { return size.height < 0 ? -size.height : size.height; }

    /// The same area with a width and a height that are not negative.
    constexpr Rect standardized() const {
        Rect result = *this;
        if (isNull())
            return result;
        if (size.width < 0)
            result = {origin.x + size.width, result.origin.y, -size.width, result.size.height};
        if (size.height < 0)
            result = {result.origin.x, origin.y + size.height, result.size.width, -size.height};
        return result;
    }

    /// Moves each vertical edge inwards by `dx` and each horizontal one by `dy` (outwards when negative).
    /// The null rectangle when an edge would pass the opposite one.
    constexpr Rect insetBy(double dx, double dy) const {
        if (isNull())
            return *this;
        const Rect whole = standardized();
        const Rect result{whole.origin.x + dx, whole.origin.y + dy, whole.size.width - 2 * dx,
                          whole.size.height - 2 * dy};
        return result.size.width < 0 || result.size.height < 0 ? null() : result;
    }

    /// Takes half of the gap off each side, as far as there is something to take.
    constexpr Rect withoutGap(double gap) const {
        if (!(gap > 0))
            return *this;
        const double half = gap * 0.5;
        return insetBy(std::min(width() * 0.5, half), std::min(height() * 0.5, half));
    }

    constexpr bool contains(Point point) const {
        return !isNull() && minX() <= point.x && point.x < maxX() && minY() <= point.y && point.y < maxY();
    }

    /// Equal areas: both standardised, then field by field.
    friend constexpr bool operator==(const Rect& a, const Rect& b) {
        const Rect left = a.standardized();
        const Rect right = b.standardized();
        return left.origin == right.origin && left.size == right.size;
    }
};

} // namespace tarnwell
