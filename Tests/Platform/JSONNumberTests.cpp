#include "TarnwellCore/Platform/JSONNumber.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string_view>

namespace tarnwell {
namespace {

using namespace std::string_view_literals;

TEST(JSONNumber, TheWholeTextIsANumberOrNothing) {
    using Limits = std::numeric_limits<double>;
    const struct {
        std::string_view text;
        double number;
    } numbers[] = {{"0", 0},
                   {"-12.5E+1", -125},
                   {"1e-1", 0.1},
                   {"0e2147483648", 0},
                   {"0.00000000001e-2147483639", 0},
                   {"0.1000000000000000055511151231257827021181583404541015625", 0.1},
                   {"5e-324", Limits::denorm_min()},
                   {"1.7976931348623157e308", Limits::max()}};
    for (const auto& each : numbers)
        EXPECT_EQ(doubleFromJSONNumber(each.text), each.number) << each.text;
    for (const std::string_view text :
         {""sv, "-"sv, "+1"sv, "01"sv, ".5"sv, "1."sv, "1e+"sv, " 1"sv, "1 "sv, "0x1"sv, "inf"sv, "1,5"sv,
          "1\0"sv, "1e309"sv, "-1.7976931348623159e308"sv})
        EXPECT_EQ(doubleFromJSONNumber(text), std::nullopt) << text;
}

} // namespace
} // namespace tarnwell
