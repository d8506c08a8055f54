#include "TarnwellCore/Platform/JSONNumber.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string_view>

namespace tarnwell {
namespace {

TEST(JSONNumber, TheWholeTextIsANumberOrNothing) {
    using Limits = std::numeric_limits<double>;
    const struct {
        std::string_view text;
        double number;
    } numbers[] = {{"0", 0},
                   {"-12.5E+1", -125},
                   {"1e-1", 0.1},
                   {"0e99", 0},
                   {"0e2147483648", 0},
                   {"0.00000000001e-2147483639", 0},
                   {"18446744073709551616", 18446744073709551616.0},
                   {"0.1000000000000000055511151231257827021181583404541015625", 0.1},
                   {"5e-324", Limits::denorm_min()},
                   {"1.7976931348623157e308", Limits::max()}};
    for (const auto& each : numbers)
        EXPECT_EQ(doubleFromJSONNumber(each.text), each.number) << each.text;
    for (const std::string_view text :
         {std::string_view(), std::string_view("-"), std::string_view("+1"), std::string_view("01"),
          std::string_view(".5"), std::string_view("1."), std::string_view("1e"), std::string_view("1e+"),
          std::string_view(" 1"), std::string_view("1 "), std::string_view("0x1"), std::string_view("inf"),
          std::string_view("nan"), std::string_view("1,5"), std::string_view("1\0", 2),
          std::string_view("1e309"), std::string_view("-1.7976931348623159e308")})
        EXPECT_EQ(doubleFromJSONNumber(text), std::nullopt) << text;
}

} // namespace
} // namespace tarnwell
