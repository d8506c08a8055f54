#include "TarnwellCore/Scanning/ByteFormatter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace tarnwell {
namespace {

TEST(ByteFormatter, ListingAndCompactForm) {
    const struct {
        std::int64_t bytes;
        const char* listed;
        const char* compact;
    } cases[] = {
        {0, "nothing", "0"},
        {1, "1 byte", "1 B"},
        {-1, "-1 byte", "-1 B"},
        {999, "999 bytes", "999 B"},
        {1000, "1 KB", "1 KB"},
        {-1'500, "-2 KB", "-1.5 KB"},
        {9'960, "10 KB", "10 KB"},
        {999'600, "1000 KB", "1000 KB"},
        {99'940'000, "100 MB", "100 MB"},
        {12'400'000'000, "12.4 GB", "12 GB"},
        {-2'500'000'000, "-2.5 GB", "-2.5 GB"},
        {99'960'000'000, "100 GB", "100 GB"},
        {150'400'000'000, "150 GB", "150 GB"},
        {1'000'000'000'000, "1 TB", "1 TB"},
        {-7'740'000'000'000'000, "-7.7 PB", "-7.7 PB"},
        {std::numeric_limits<std::int64_t>::max(), "9.2 EB", "9.2 EB"},
        {std::numeric_limits<std::int64_t>::min(), "-9.2 EB", "-9.2 EB"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(ByteFormatter::string(each.bytes, "nothing"), each.listed);
        EXPECT_EQ(ByteFormatter::compact(each.bytes), each.compact);
    }
}

TEST(ByteFormatter, FixedDecimalsForm) {
    EXPECT_EQ(ByteFormatter::string(0, 2), "0 bytes");
    EXPECT_EQ(ByteFormatter::string(-1'234'567, 3), "-1.235 MB");
    EXPECT_EQ(ByteFormatter::string(1'999, -4), "2 KB");
    EXPECT_EQ(ByteFormatter::string(1'500, 2'000), "1.5" + std::string(1'999, '0') + " KB");
}

TEST(ByteFormatter, Percent) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const struct {
        double fraction;
        int decimals;
        const char* text;
    } cases[] = {
        {0.45, 1, "45.0%"},      {0, 1, "0.0%"},        {-0.0, 1, "0.0%"},           {-3, 0, "0%"},
        {1.7, 1, "100.0%"},      {0.0004, 4, "<0.1%"},  {0.001, 1, "0.1%"},          {0.99999, 1, "100.0%"},
        {0.12345, 3, "12.345%"}, {infinity, 0, "100%"}, {std::nan(""), 1, "100.0%"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(ByteFormatter::percent(each.fraction, each.decimals), each.text);
}

} // namespace
} // namespace tarnwell
