// How names are compared with what people type: case and globs.

#include "TarnwellCore/Platform/LetterCase.hpp"
#include "TarnwellCore/Text/CaseFolder.hpp"
#include "TarnwellCore/Text/GlobPattern.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {
namespace {

TEST(CaseFolder, FoldsAsTheSystemFoldsWholeTexts) {
    CaseFolder folder;
    EXPECT_EQ(folder.fold("IMG_0042 @[`{.JPEG"), "img_0042 @[`{.jpeg");
    EXPECT_EQ(folder.fold("STRASSE"), std::string(folder.fold("Straße")));
    EXPECT_EQ(folder.fold("É"), std::string(folder.fold("e\xCC\x81")));
    EXPECT_NE(folder.fold("É"), std::string(folder.fold("e")));
    EXPECT_EQ(folder.fold("\xFF"
                          "E\xCC\x81\xC3"),
              "\xFF"
              "é\xC3");
    // Characters by themselves, composed ones, marks, syllables in parts, and letters that become several.
    const std::vector<std::string> parts = {
        "A", "z", "É",  "e",  "\xCC\x81", "\xCC\xA3", "漢", "Ж",        "ς", "Σ",  "ß", "ﬁ", "İ",
        "I", "K", "각", "ᄀ", "ᅡ",        "ᆨ",        "ǰ",  "\xCD\x85", "ᾳ", "🍉", "𐐀", "ཱི"};
    std::mt19937_64 random(5);
    for (int round = 0; round < 20'000; ++round) {
        std::string text;
        for (std::size_t count = random() % 6; count > 0; --count)
            text += parts[random() % parts.size()];
        ASSERT_EQ(folder.fold(text), caseFolded(text)) << text;
    }
}

/// By trying every way.
bool plainlyMatches(std::string_view pattern, std::string_view text) {
    if (pattern.empty())
        return text.empty();
    if (pattern.starts_with("**")) {
        if (pattern.starts_with("**/") && plainlyMatches(pattern.substr(3), text))
            return true;
        for (std::size_t length = 0; length <= text.size(); ++length)
            if (plainlyMatches(pattern.substr(2), text.substr(length)))
                return true;
        return false;
    }
    if (pattern[0] == '*') {
        for (std::size_t length = 0; length <= text.size(); ++length) {
            if (plainlyMatches(pattern.substr(1), text.substr(length)))
                return true;
            if (length < text.size() && text[length] == '/')
                return false;
        }
        return false;
    }
    return !text.empty() && (pattern[0] == text[0] || (pattern[0] == '?' && text[0] != '/')) &&
           plainlyMatches(pattern.substr(1), text.substr(1));
}

TEST(GlobPattern, AgreesWithTryingEveryWay) {
    std::mt19937_64 random(6);
    int matchCount = 0;
    for (int round = 0; round < 20'000; ++round) {
        // "**/" is a folder at the start and behind "/" only, as the plain rule above has no memory of it.
        std::string pattern;
        for (std::size_t count = random() % 6; count > 0; --count) {
            static constexpr std::string_view parts[] = {"a", "b", "/", "?", "*", "/**/", "/**"};
            const std::string_view part = parts[random() % std::size(parts)];
            if (!(pattern.ends_with('*') && part.starts_with('*')))
                pattern += part;
        }
        // A long head moves the places across the words of the set.
        const std::string head(random() % 3 == 0 ? 60 + random() % 6 : 0, 'a');
        std::string text;
        for (std::size_t count = random() % 7; count > 0; --count)
            text += "aab//"[random() % 5];
        const bool expected = plainlyMatches(pattern, text);
        ASSERT_EQ(GlobPattern(head + pattern).matches(head + text), expected) << pattern << "   " << text;
        matchCount += expected;
    }
    EXPECT_GT(matchCount, 500);
}

TEST(GlobPattern, SetsEscapesAndAnyBytes) {
    const struct {
        const char* pattern;
        const char* text;
        bool matches;
    } cases[] = {
        {"[a-c]x", "bx", true},   {"[!a-c]x", "bx", false},  {"[^a-c]x", "dx", true},  {"[]]", "]", true},
        {"[a-]", "-", true},      {"[a", "[a", true},        {"[!]a]", "b", true},     {"[z-a]", "m", false},
        {"[!a]", "/", false},     {"\\*", "*", true},        {"\\*", "a", false},      {"a\\", "a\\", true},
        {"[\\]]", "]", true},     {"?", "é", true},          {"??", "é", false},       {"?", "\xFF", true},
        {"\xFF*", "\xFFx", true}, {"\xFF*", "\xFEx", false}, {"[à-ü]", "é", true},     {"", "", true},
        {"**/a", "a", true},      {"/**/a", "/a", true},     {"/**/**/a", "/a", true}, {"x**/a", "xa", false},
        {"***", "a/b", true},     {"**", "", true},
    };
    for (const auto& [pattern, text, matches] : cases)
        EXPECT_EQ(GlobPattern(pattern).matches(text), matches) << pattern << "   " << text;
    for (const auto& [part, text, matches] :
         {std::tuple{"/b", "a/b", true}, {"/b", "ab", false}, {"", "", true}})
        EXPECT_EQ(GlobPattern::containing(part).matches(text), matches) << part << "   " << text;
    // Where other matchers try every way, this one takes a step for each character.
    std::string stars;
    for (int count = 0; count < 2'000; ++count)
        stars += "*a";
    EXPECT_FALSE(GlobPattern(stars + "b").matches(std::string(100'000, 'a')));
}

} // namespace
} // namespace tarnwell
