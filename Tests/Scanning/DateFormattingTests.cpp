#include "TarnwellCore/Scanning/DateFormatting.hpp"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <thread>
#include <vector>

namespace tarnwell {
namespace {

constexpr double day = 86'400;
/// 2024-05-15 12:00:00 UTC, a Wednesday.
const Date noon{Date::duration(1'715'774'400)};

Date after(double seconds) {
    return noon + Date::duration(seconds);
}

// The formatters are made once, with the language of the environment that they find.
const bool environmentIsSet = [] {
    ::setenv("LC_ALL", "en_GB.UTF-8", 1);
    ::setenv("TZ", "UTC", 1);
    return true;
}();

#ifdef __linux__
// Foundation chooses its words itself, and in the language of the user's settings.
TEST(DateFormatting, RelativeDatesNameTheLargestWholeUnit) {
    if (DateFormatting::relativeString(noon, noon) != "now")
        GTEST_SKIP() << "the user's language is not English";
    const struct {
        double seconds;
        const char* text;
    } cases[] = {
        {-0.4, "now"},
        {-1, "1 second ago"},
        {59, "in 59 seconds"},
        {-90, "1 minute ago"},
        {-day, "yesterday"},
        {-day + 1, "23 hours ago"},
        {-8 * day, "last week"},
        {15 * day, "in 2 weeks"},
        {-29 * day, "4 weeks ago"},
        {-75 * day, "2 months ago"},
        {-366 * day, "last year"},
        {-20 * 365.25 * day, "20 years ago"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(DateFormatting::relativeString(after(each.seconds), noon), each.text) << each.seconds;
}
#endif

TEST(DateFormatting, RelativeDatesTellThePastFromTheFuture) {
    EXPECT_NE(DateFormatting::relativeString(after(-3 * day), noon),
              DateFormatting::relativeString(after(3 * day), noon));
}

TEST(DateFormatting, AbsoluteDatesCarryDayAndTime) {
    const std::string text = DateFormatting::absoluteString(noon);
    EXPECT_NE(text.find("2024"), std::string::npos) << text;
    EXPECT_NE(text.find("12"), std::string::npos) << text;
    EXPECT_EQ(text.find(":00:00"), std::string::npos) << "seconds are not part of the short style: " << text;
}

TEST(DateFormatting, MissingAndImpossibleDates) {
    const Date nan{Date::duration(std::nan(""))};
    EXPECT_EQ(DateFormatting::relativeString(std::nullopt, noon), "Unknown");
    EXPECT_EQ(DateFormatting::absoluteString(std::nullopt), "Unknown");
    EXPECT_EQ(DateFormatting::relativeString(nan, noon), "Unknown");
    EXPECT_EQ(DateFormatting::absoluteString(nan), "Unknown");
    EXPECT_EQ(DateFormatting::daysSince(std::nullopt, noon), std::nullopt);
    EXPECT_FALSE(DateFormatting::isOlderThan(-1, std::nullopt, noon));
    for (const double seconds : {-1e300, -1e18, 1e12, 1e18, std::numeric_limits<double>::infinity()}) {
        const Date far{Date::duration(seconds)};
        EXPECT_FALSE(DateFormatting::relativeString(far, noon).empty()) << seconds;
        EXPECT_FALSE(DateFormatting::absoluteString(far).empty()) << seconds;
        EXPECT_TRUE(DateFormatting::daysSince(far, noon)) << seconds;
    }
}

TEST(DateFormatting, DaysAreCutOffAndAgesCompareStrictly) {
    EXPECT_EQ(DateFormatting::daysSince(after(-1.99 * day), noon), 1);
    EXPECT_EQ(DateFormatting::daysSince(after(0.99 * day), noon), 0);
    EXPECT_EQ(DateFormatting::daysSince(after(2.5 * day), noon), -2);
    EXPECT_FALSE(DateFormatting::isOlderThan(30, after(-30 * day), noon));
    EXPECT_TRUE(DateFormatting::isOlderThan(30, after(-30 * day - 0.5), noon));
    EXPECT_FALSE(DateFormatting::isOlderThan(std::numeric_limits<std::int64_t>::max(), after(-day), noon));
}

TEST(DateFormatting, Durations) {
    const struct {
        double seconds;
        std::string text;
    } cases[] = {
        {0.9999, "1000 ms"},      {1, "1.00 s"},    {59.999, "60.00 s"},        {60, "1 m 00 s"},
        {36'125.9, "602 m 05 s"}, {-2, "-2000 ms"}, {std::nan(""), "0 m 00 s"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(DateFormatting::durationString(each.seconds), each.text);
    EXPECT_TRUE(DateFormatting::durationString(-1e300).ends_with(" ms"));
    EXPECT_TRUE(DateFormatting::durationString(std::numeric_limits<double>::infinity()).ends_with(" s"));
}

TEST(DateFormatting, DurationsDoNotFollowTheLocale) {
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    const char* found = nullptr;
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "es_ES.UTF-8", "ru_RU.UTF-8"})
        if (found == nullptr && (found = std::setlocale(LC_NUMERIC, name)) != nullptr) {
            EXPECT_EQ(DateFormatting::durationString(1.5), "1.50 s") << name;
        }
    std::setlocale(LC_NUMERIC, before.c_str());
    if (found == nullptr)
        GTEST_SKIP() << "no locale with a decimal comma on this machine";
}

TEST(DateFormatting, FormattersAreSharedByThreads) {
    const std::string relative = DateFormatting::relativeString(after(-3 * day), noon);
    const std::string absolute = DateFormatting::absoluteString(noon);
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index)
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                EXPECT_EQ(DateFormatting::relativeString(after(-3 * day), noon), relative);
                EXPECT_EQ(DateFormatting::absoluteString(noon), absolute);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
} // namespace tarnwell
