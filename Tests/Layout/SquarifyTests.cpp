#include "TarnwellCore/Layout/TreemapLayout.hpp"

#include "Tests/Support/PlainTreemap.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace tarnwell {
namespace {

using TreemapLayout::squarify;

TEST(Squarify, AgreesToTheBitWithThePlainSubdivision) {
    std::mt19937_64 random(61);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int round = 0; round < 20'000; ++round) {
        // In turn zeros and equal values, whole sizes, and fractions.
        std::vector<double> values(1 + random() % 60);
        for (double& value : values)
            value = round % 3 == 0   ? static_cast<double>(random() % 3)
                    : round % 3 == 1 ? std::floor(std::exp2(unit(random) * 62))
                                     : std::exp2(unit(random) * 40 - 20);
        if (random() % 4 != 0)
            std::ranges::sort(values, std::ranges::greater());
        Rect area(unit(random) * 2000 - 1000, unit(random) * 2000 - 1000, 1 + unit(random) * 3000,
                  1 + unit(random) * 3000);
        if (random() % 5 == 0)
            area.size.height = area.size.width;
        ASSERT_EQ(squarify(values, area), test::plainSquarify(values, area)) << "round " << round;
    }
}

TEST(Squarify, WorkedExamples) {
    EXPECT_TRUE(squarify({}, {0, 0, 10, 10}).empty());
    const double one[] = {7};
    EXPECT_EQ(squarify(one, {1, 2, 30, 40}), std::vector<Rect>{Rect(1, 2, 30, 40)});
    const double halves[] = {1, 1};
    EXPECT_EQ(squarify(halves, {0, 0, 10, 4}), (std::vector<Rect>{{0, 0, 5, 4}, {5, 0, 5, 4}}));
    // A square counts as upright: its rows run along the top.
    EXPECT_EQ(squarify(halves, {0, 0, 4, 4}), (std::vector<Rect>{{0, 0, 2, 4}, {2, 0, 2, 4}}));
    const double textbook[] = {6, 6, 4, 3, 2, 2, 1};
    const std::vector<Rect> tiles = squarify(textbook, {0, 0, 6, 4});
    EXPECT_EQ(tiles[0], Rect(0, 0, 3, 2));
    EXPECT_EQ(tiles[1], Rect(0, 2, 3, 2));
    EXPECT_NEAR(tiles[2].height(), 7.0 / 3, 1e-12);
    EXPECT_NEAR(tiles[2].width(), 12.0 / 7, 1e-12);
    EXPECT_EQ(tiles[6].maxX(), 6);
    EXPECT_EQ(tiles[6].maxY(), 4);
}

TEST(Squarify, OddInputHasADefinedResult) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    const std::vector<double> values = {3, 2, 1};
    const std::vector<Rect> zeros(3);
    for (const Rect& area :
         {Rect(0, 0, 0, 5), Rect(5, 5, 5, 0), Rect(0, 0, nan, 5), Rect(0, 0, 5, nan), Rect(nan, 0, 5, 5),
          Rect(0, infinity, 5, 5), Rect(0, 0, infinity, 5), Rect(0, 0, 1e200, 1e200), Rect::null()})
        EXPECT_EQ(squarify(values, area), zeros);
    for (const std::vector<double>& each :
         {std::vector<double>{0, 0, 0}, {nan, 1, 1}, {-1, -2, -3}, {1, -1, 0}, {1, -infinity, infinity}})
        EXPECT_EQ(squarify(each, {0, 0, 10, 10}), zeros);
    // A rectangle of negative extent stands for the same area.
    EXPECT_EQ(squarify(values, {10, 20, -10, -20}), squarify(values, {0, 0, 10, 20}));
    // Tiles beyond what is left have no area, but a place; nothing hangs on values that overflow.
    const std::vector<double> tiny = {1e300, 1e-300, 1e-300};
    for (const Rect& tile : squarify(tiny, {0, 0, 10, 10}))
        EXPECT_TRUE(std::isfinite(tile.maxX()) && std::isfinite(tile.maxY()));
    const std::vector<double> huge = {infinity, 1e308, 1e308};
    EXPECT_EQ(squarify(huge, {0, 0, 10, 10}).size(), 3u);
}

} // namespace
} // namespace tarnwell
