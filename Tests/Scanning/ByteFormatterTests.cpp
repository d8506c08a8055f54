#include "TarnwellCore/Scanning/ByteFormatter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

namespace tarnwell {
namespace {

constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();

TEST(ByteFormatter, ListingForm) {
    const struct {
        std::int64_t bytes;
        const char* text;
    } cases[] = {
        {0, "nothing"},
        {1, "1 byte"},
        {-1, "-1 byte"},
        {-5, "-5 bytes"},
        {999, "999 bytes"},
        {1000, "1 KB"},
        {999'499, "999 KB"},
        {999'600, "1000 KB"},
        {1'000'000, "1 MB"},
        {99'940'000, "100 MB"},
        {1'000'000'000, "1 GB"},
        {1'500'000'000, "1.5 GB"},
        {-2'500'000'000, "-2.5 GB"},
        {99'940'000'000, "99.9 GB"},
        {99'960'000'000, "100 GB"},
        {150'000'000'000, "150 GB"},
        {1'000'000'000'000, "1 TB"},
        {greatest, "9.2 EB"},
        {least, "-9.2 EB"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(ByteFormatter::string(each.bytes, "nothing"), each.text);
}

TEST(ByteFormatter, FixedDecimalsForm) {
    EXPECT_EQ(ByteFormatter::string(0, 2), "0 bytes");
    EXPECT_EQ(ByteFormatter::string(-1, 2), "-1 byte");
    EXPECT_EQ(ByteFormatter::string(1'000'000'000, 2), "1.00 GB");
    EXPECT_EQ(ByteFormatter::string(-1'234'567, 3), "-1.235 MB");
    EXPECT_EQ(ByteFormatter::string(1'999, 0), "2 KB");
    EXPECT_EQ(ByteFormatter::string(1'999, -4), "2 KB");
    EXPECT_EQ(ByteFormatter::string(1'500, 2'000), "1.5" + std::string(1'999, '0') + " KB");
}

TEST(ByteFormatter, CompactForm) {
    const struct {
        std::int64_t bytes;
        const char* text;
    } cases[] = {
        {0, "0"},
        {512, "512 B"},
        {-3, "-3 B"},
        {1'000, "1 KB"},
        {1'500, "1.5 KB"},
        {9'960, "10 KB"},
        {12'400'000, "12 MB"},
        {2'000'000'000, "2 GB"},
        {-2'300'000'000, "-2.3 GB"},
        {least, "-9.2 EB"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(ByteFormatter::compact(each.bytes), each.text);
}

TEST(ByteFormatter, Percent) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const struct {
        double fraction;
        int decimals;
        const char* text;
    } cases[] = {
        {0.45, 1, "45.0%"},      {0, 1, "0.0%"},       {-0.0, 1, "0.0%"},  {-3, 0, "0%"},
        {-infinity, 1, "0.0%"},  {1, 1, "100.0%"},     {1.7, 1, "100.0%"}, {infinity, 0, "100%"},
        {0.0004, 1, "<0.1%"},    {0.0004, 4, "<0.1%"}, {0.001, 1, "0.1%"}, {0.99999, 1, "100.0%"},
        {0.12345, 3, "12.345%"}, {1e-320, 0, "<0.1%"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(ByteFormatter::percent(each.fraction, each.decimals), each.text);
    EXPECT_EQ(ByteFormatter::percent(std::nan(""), 1), "100.0%");
}

// The numbers must be those of printf, also where a value stands right between two texts.
TEST(ByteFormatter, RoundsLikePrintf) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 20'000; ++round) {
        const auto bytes = static_cast<std::int64_t>(random() >> (random() % 54 + 1)) / 50 * 50;
        auto value = static_cast<double>(bytes);
        std::size_t unit = 0;
        do {
            value /= 1000;
            ++unit;
        } while (value >= 1000 && unit < 6);
        if (bytes < 1000)
            continue;
        char expected[64];
        std::snprintf(expected, sizeof expected, "%.2f ", value);
        EXPECT_EQ(ByteFormatter::string(bytes, 2), expected + std::string(ByteFormatter::units[unit]));
    }
}

} // namespace
} // namespace tarnwell
