#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace tarnwell {
namespace {

using namespace std::string_literals;

TEST(HarmlessText, EscapesWhatATerminalObeysOrHides) {
    const struct {
        std::string bytes;
        std::string shown;
    } cases[] = {
        {"", ""},
        {"plain, longer than a word\\n", "plain, longer than a word\\n"},
        {"\0\a\x1B[2J\x1F~\x7F"s, "\\x00\\x07\\x1B[2J\\x1F~\\x7F"},
        {"a\nb\tc\rd", "a\\nb\\tc\\rd"},
        {"\u0080\u009B\u00A0\u00E9", "\\u{80}\\u{9B}\u00A0\u00E9"},
        {"\x9B[2J\xFF\xE2\x82z\xED\xA0\x80", "\\x9B[2J\\xFF\\xE2\\x82z\\xED\\xA0\\x80"},
        {"\u202Egpj.exe\u2066\u061C\u200F", "\\u{202E}gpj.exe\\u{2066}\\u{61C}\\u{200F}"},
        {"a\u2028b\uFEFFc\u200Bd\U000E0041", "a\\u{2028}b\\u{FEFF}c\\u{200B}d\\u{E0041}"},
        // The neighbours of what is escaped, and the last of all characters.
        {"\u200A\u2010\u2027\u202F\u205F\u2070\U0010FFFF", "\u200A\u2010\u2027\u202F\u205F\u2070\U0010FFFF"},
        // Joiners where they join, and where they only hide.
        {"\u0645\u06CC\u200C\u062E\u0648", "\u0645\u06CC\u200C\u062E\u0648"},
        {"\u2764\uFE0F\u200D\U0001F525", "\u2764\uFE0F\u200D\U0001F525"},
        {"a\u200Db\u200C", "a\\u{200D}b\\u{200C}"},
        {"\u65E5\u200D\u200D\u65E5\u200D", "\u65E5\\u{200D}\\u{200D}\u65E5\\u{200D}"},
        {"\u65E5\u200D\u202E", "\u65E5\\u{200D}\\u{202E}"},
        {"a\uFE0F1\uFE0F\u20E3\uFE0F\uFE0F", "a\\u{FE0F}1\uFE0F\u20E3\uFE0F\\u{FE0F}"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(harmless(each.bytes), each.shown);
        EXPECT_EQ(isHarmless(each.bytes), each.bytes == each.shown) << each.shown;
        EXPECT_EQ(styled(each.bytes, NameStyle::verbatim), each.bytes);
    }
    EXPECT_EQ(harmlessJSON("{\n  \"a\x7F\u202E\": \"\U000E0041\u65E5\\n\"\n}\n"),
              "{\n  \"a\\u007F\\u202E\": \"\\uDB40\\uDC41\u65E5\\n\"\n}\n");
}

/// Bytes of all kinds in any order.
std::string randomName(std::mt19937& random) {
    static const std::string pieces[] = {
        "a",      "name.tar", "\n",     "\x1B",   "\x80",       "\xFF",   "\xE2\x82", "\u200D", "\u200C",
        "\uFE0F", "\u202E",   "\u0301", "\u65E5", "\U0001F525", "\u0645", "1",        "\u00E9", "\U000E0041"};
    std::string name;
    for (auto count = random() % 12; count > 0; --count)
        name += pieces[random() % std::size(pieces)];
    return name;
}

TEST(HarmlessText, AnyBytesBecomeALineThatStaysTheSameAndFits) {
    std::mt19937 random(7);
    for (int round = 0; round < 20'000; ++round) {
        const std::string name = randomName(random);
        const std::string shown = harmless(name);
        EXPECT_TRUE(isValidUTF8(shown));
        EXPECT_EQ(harmless(shown), shown);
        EXPECT_EQ(displayWidth(name), displayWidth(shown));
        const std::size_t width = random() % 20;
        for (const Cut cut : {Cut::end, Cut::middle, Cut::start}) {
            const std::string part = fitted(name, width, cut);
            EXPECT_TRUE(isHarmless(part)) << part;
            EXPECT_LE(displayWidth(part), width) << part;
            EXPECT_EQ(part == shown, displayWidth(shown) <= width) << part;
            EXPECT_EQ(displayWidth(padded(name, width, Side::right, cut)), width);
        }
    }
}

TEST(DisplayWidth, CountsColumns) {
    const struct {
        std::string text;
        std::size_t width;
    } cases[] = {
        {"", 0},
        {"plain", 5},
        {"\u00E9e\u0301", 2},
        {"\u65E5\u672C", 4},
        {"\uFF21\uFF71", 3},
        {"\U0001F525", 2},
        {"\u2764", 1},
        {"\u2764\uFE0F", 1},
        {"\u1112\u1161\u11AB", 2},
        {"a\nb", 4},
        {"\xFF", 4},
        {"\u202E", 8},
        {"\U0001F468\u200D\U0001F469", 4},
        {"\u0645\u064E", 1},
    };
    for (const auto& each : cases)
        EXPECT_EQ(displayWidth(each.text), each.width) << each.text;
}

TEST(DisplayWidth, CutsWhereAReaderMissesLeast) {
    const struct {
        std::string text;
        std::size_t width;
        std::string end;
        std::string middle;
        std::string start;
    } cases[] = {
        {"abcdef", 6, "abcdef", "abcdef", "abcdef"},
        {"abcdef", 4, "abc…", "ab…f", "…def"},
        {"abcdef", 1, "…", "…", "…"},
        {"abcdef", 0, "", "", ""},
        {"日本語日本", 6, "日本…", "日…本", "…日本"},
        {"日本語日本", 7, "日本語…", "日…本", "…語日本"},
        {"xe\u0301e\u0301e\u0301", 3, "xe\u0301…", "x…e\u0301", "…e\u0301e\u0301"},
        {"a\U0001F468\u200D\U0001F469b", 4, "a…", "a…b", "…b"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(fitted(each.text, each.width), each.end);
        EXPECT_EQ(fitted(each.text, each.width, Cut::middle), each.middle);
        EXPECT_EQ(fitted(each.text, each.width, Cut::start), each.start);
    }
    EXPECT_EQ(padded("日本語", 4), "日… ");
    EXPECT_EQ(padded("日", 4, Side::right), "  日");
}

} // namespace
} // namespace tarnwell
