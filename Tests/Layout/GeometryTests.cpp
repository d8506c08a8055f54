#include "TarnwellCore/Layout/Geometry.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tarnwell {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Geometry, InsetStopsAtTheNullRectangle) {
    const struct {
        Rect rect;
        double dx;
        double dy;
        Rect expected;
    } cases[] = {
        {{10, 20, 30, 40}, 5, 6, {15, 26, 20, 28}}, {{10, 20, 30, 40}, -5, 0, {5, 20, 40, 40}},
        {{10, 20, 30, 40}, 15, 20, {25, 40, 0, 0}}, {{10, 20, 30, 40}, 15.5, 0, Rect::null()},
        {{10, 20, 30, 40}, 0, 21, Rect::null()},    {{40, 60, -30, -40}, 5, 6, {15, 26, 20, 28}},
        {Rect::null(), -5, -5, Rect::null()},
    };
    for (const auto& each : cases)
        EXPECT_EQ(each.rect.insetBy(each.dx, each.dy), each.expected);
}

TEST(Geometry, NegativeExtentsStandForTheSameArea) {
    const Rect rect(10, 20, -4, -6);
    EXPECT_EQ(rect, Rect(6, 14, 4, 6));
    EXPECT_NE(rect, Rect(10, 20, 4, 6));
    EXPECT_TRUE(rect.contains({6, 14}));
    EXPECT_FALSE(rect.contains({10, 15}));
    EXPECT_FALSE(rect.contains({7, 20}));
}

TEST(Geometry, MinimumEdgesBelongToARectangleAndMaximumEdgesDoNot) {
    const Rect rect(1, 2, 3, 4);
    EXPECT_TRUE(rect.contains({1, 2}));
    EXPECT_TRUE(rect.contains({3.999, 5.999}));
    EXPECT_FALSE(rect.contains({4, 3}));
    EXPECT_FALSE(rect.contains({2, 6}));
    EXPECT_FALSE(rect.contains({0.999, 3}));
    EXPECT_FALSE(rect.contains({std::nan(""), 3}));
    EXPECT_FALSE(Rect(1, 2, 0, 4).contains({1, 2}));
    EXPECT_FALSE(Rect::null().contains({infinity, infinity}));
    EXPECT_FALSE(Rect(0, 0, std::nan(""), 1).contains({0, 0}));
}

} // namespace
} // namespace tarnwell
