#include "TarnwellCore/Text/ISO8601.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace tarnwell {
namespace {

Date at(double seconds) {
    return Date(Date::duration(seconds));
}

TEST(ISO8601, TextAndDateStandForEachOther) {
    const struct {
        double seconds;
        std::string text;
    } cases[] = {
        {0, "1970-01-01T00:00:00Z"},
        {-1, "1969-12-31T23:59:59Z"},
        {1714555800, "2024-05-01T09:30:00Z"},
        {951782399, "2000-02-28T23:59:59Z"},
        {951782400, "2000-02-29T00:00:00Z"},
        {4107542400, "2100-03-01T00:00:00Z"},
        {-2203891200, "1900-03-01T00:00:00Z"},
        // No calendar reform: the day before 1582-10-15 is the 14th.
        {-12219292800 - 1, "1582-10-14T23:59:59Z"},
        {-62135596800, "0001-01-01T00:00:00Z"},
        {253402300799, "9999-12-31T23:59:59Z"},
    };
    for (const auto& sample : cases) {
        EXPECT_EQ(iso8601Text(at(sample.seconds)), sample.text);
        EXPECT_EQ(dateFromISO8601(sample.text), at(sample.seconds)) << sample.text;
    }
    // Every day of the calendar, the sum of all month lengths and leap days included.
    for (std::int64_t second = -62135596800 + 86399; second <= 253402300799; second += 86400 * 13) {
        const Date date = at(static_cast<double>(second));
        const std::optional<std::string> text = iso8601Text(date);
        ASSERT_TRUE(text && dateFromISO8601(*text) == date) << second;
    }
}

TEST(ISO8601, FractionsAreDroppedTowardsThePast) {
    EXPECT_EQ(iso8601Text(at(0.999)), "1970-01-01T00:00:00Z");
    EXPECT_EQ(iso8601Text(at(-0.001)), "1969-12-31T23:59:59Z");
}

TEST(ISO8601, WhatHasNoTextGivesNone) {
    for (const double seconds :
         {-62135596800.5, 253402300800.0, std::nan(""), std::numeric_limits<double>::infinity(),
          std::numeric_limits<double>::lowest()})
        EXPECT_EQ(iso8601Text(at(seconds)), std::nullopt) << seconds;
}

TEST(ISO8601, OffsetsAreTakenBackToUTC) {
    for (const char* text :
         {"2024-05-01T11:30:00+02:00", "2024-05-01T11:30:00+0200", "2024-05-01T11:30:00+02",
          "2024-04-30T21:00:00-12:30", "2024-05-02T09:29:00+23:59"})
        EXPECT_EQ(dateFromISO8601(text), at(1714555800)) << text;
}

TEST(ISO8601, OtherTextsAreNoDates) {
    for (const char* text : {"",
                             "2024",
                             "2024-05-01T09:30:00",
                             "2024-05-01 09:30:00Z",
                             "2024-05-01T09:30Z",
                             "2024-05-01T09:30:00.5Z",
                             "2024-05-01T09:30:00Z ",
                             "2024-5-1T9:30:00Z",
                             "+024-05-01T09:30:00Z",
                             "2023-02-29T00:00:00Z",
                             "2024-13-01T00:00:00Z",
                             "2024-01-00T00:00:00Z",
                             "2024-01-01T24:00:00Z",
                             "2024-01-01T00:60:00Z",
                             "2024-01-01T00:00:60Z",
                             "0000-12-31T23:59:59Z",
                             "0001-01-01T00:00:00+00:01",
                             "9999-12-31T23:59:59-00:01",
                             "2024-05-01T09:30:00+2",
                             "2024-05-01T09:30:00+02:6",
                             "2024-05-01T09:30:00+02:60",
                             "2024-05-01T09:30:00+24:00",
                             "2024-05-01T09:30:00+02:00:00",
                             "2024-05-0\xD9\xA1T09:30:00Z"})
        EXPECT_EQ(dateFromISO8601(text), std::nullopt) << text;
}

} // namespace
} // namespace tarnwell
