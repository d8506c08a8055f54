#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <string>

namespace tarnwell {
namespace {

TEST(DecimalText, PlainAndExponentForms) {
    const struct {
        double value;
        const char* text;
    } cases[] = {
        {0.0, "0.0"},       {-0.0, "-0.0"},        {30.0, "30.0"},
        {0.0001, "0.0001"}, {9.5e-5, "9.5e-05"},   {1e15, "1000000000000000.0"},
        {1e16, "1e+16"},    {1.5e300, "1.5e+300"}, {1.0 / 3, "0.3333333333333333"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(decimalText(each.value), each.text);
    EXPECT_EQ(decimalText(std::nan("")), "nan");
    EXPECT_EQ(decimalText(-std::numeric_limits<double>::infinity()), "-inf");
}

TEST(DecimalText, ReadsBackToTheSameDouble) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> fraction(0, 1);
    for (int round = 0; round < 20'000; ++round) {
        const double value = std::ldexp(fraction(random), static_cast<int>(random() % 120) - 60);
        EXPECT_EQ(std::strtod(decimalText(value).c_str(), nullptr), value);
    }
}

TEST(Utf8, RepairsEachMaximalPart) {
    const std::string mark = "\xEF\xBF\xBD";
    const struct {
        std::string bytes;
        std::string repaired;
    } cases[] = {
        {"", ""},
        {"plain ascii, longer than a word", "plain ascii, longer than a word"},
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\x80z", "a" + mark + "z"},
        {"\xC0\xAF", mark + mark},                       // overlong "/"
        {"\xE2\x82", mark},                              // cut short at the end
        {"\xE2\x82z", mark + "z"},                       // cut short in the middle
        {"\xED\xA0\x80", mark + mark + mark},            // a surrogate
        {"\xF4\x90\x80\x80", mark + mark + mark + mark}, // beyond U+10FFFF
        {"12345678\xFF", "12345678" + mark},
        {"\xF0\x9F\x98\xC3\xA4", mark + "\xC3\xA4"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(repairedUTF8(each.bytes), each.repaired);
        EXPECT_EQ(isValidUTF8(each.bytes), each.bytes == each.repaired);
        EXPECT_TRUE(isValidUTF8(each.repaired));
    }
}

TEST(JSONWriter, PrettyPrintsWithTwoBlanks) {
    std::string text = "before ";
    JSONWriter json(text);
    json.string("a\nb");
    json.beginObject();
    json.key("a");
    json.beginArray();
    json.integer(-1);
    json.beginObject();
    json.key("\"k\"");
    json.number(0.25);
    json.endObject();
    json.endArray();
    json.key("b");
    json.beginArray();
    json.endArray();
    json.key("c");
    json.string("\"\\/\x01\n\xFF");
    json.key("d");
    json.escapedString("\\u0001");
    json.key("e");
    json.boolean(true);
    json.key("f");
    json.number(std::nan(""));
    json.endObject();
    EXPECT_EQ(text, "before \"a\\nb\"{\n"
                    "  \"a\": [\n    -1,\n    {\n      \"\\\"k\\\"\": 0.25\n    }\n  ],\n"
                    "  \"b\": [],\n"
                    "  \"c\": \"\\\"\\\\/\\u0001\\n\xEF\xBF\xBD\",\n"
                    "  \"d\": \"\\u0001\",\n"
                    "  \"e\": true,\n"
                    "  \"f\": null\n}");
}

/// Byte by byte, for text that is UTF-8.
std::string plainlyEscaped(const std::string& text) {
    static const std::map<char, std::string> shortForms = {{'"', "\\\""}, {'\\', "\\\\"}, {'\b', "\\b"},
                                                           {'\f', "\\f"}, {'\n', "\\n"},  {'\r', "\\r"},
                                                           {'\t', "\\t"}};
    std::string escaped;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        char longForm[8];
        std::snprintf(longForm, sizeof longForm, "\\u%04X", byte);
        const auto found = shortForms.find(character);
        if (found != shortForms.end())
            escaped += found->second;
        else
            escaped += byte < 0x20 ? std::string(longForm) : std::string(1, character);
    }
    return escaped;
}

TEST(JSONWriter, EscapesEveryByteAtEveryPlace) {
    for (int byte = 0; byte < 256; ++byte)
        for (std::size_t size = 1; size <= 18; ++size)
            for (std::size_t place = 0; place < size; ++place) {
                std::string text(size, 'x');
                text[place] = static_cast<char>(byte);
                std::string escaped = "before ";
                JSONWriter::appendEscaped(escaped, text);
                ASSERT_EQ(escaped, "before " + plainlyEscaped(repairedUTF8(text))) << byte << " at " << place;
                ASSERT_EQ(JSONWriter::escapedLength(text), escaped.size() - 7) << byte << " at " << place;
            }
}

} // namespace
} // namespace tarnwell
