#include "TarnwellCore/Platform/PropertyList.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

using Texts = PropertyListTexts;

constexpr char array = '\xA0';
constexpr char dictionary = '\xD0';

/// A binary property list of these objects, the first one the top; references of two bytes.
std::string binaryList(const std::vector<std::string>& objects) {
    const auto number = [](std::uint64_t value, int width) {
        std::string text;
        for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
            text += static_cast<char>(value >> shift & 0xFF);
        return text;
    };
    std::string bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += number(bytes.size(), 4);
        bytes += object;
    }
    const std::size_t tableStart = bytes.size();
    return bytes + table + std::string(6, '\0') + "\x04\x02" + number(objects.size(), 8) + number(0, 8) +
           number(tableStart, 8);
}

std::string container(char kind, const std::vector<int>& references) {
    const std::size_t count = references.size() / (kind == dictionary ? 2 : 1);
    std::string object(1, static_cast<char>(kind | static_cast<char>(count)));
    for (const int reference : references)
        object += {static_cast<char>(reference >> 8), static_cast<char>(reference & 0xFF)};
    return object;
}

std::string xml(const std::string& inner) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
           "1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">" +
           inner + "</plist>\n";
}

TEST(PropertyList, TextsOfBothForms) {
    const Texts expected{{"CFBundleName", {"Caf\xC3\xA9 & Co"}}, {"Program", {"/a", "-b"}}};
    EXPECT_EQ(readPropertyList(xml("<dict><key>CFBundleName</key><string>Caf\xC3\xA9 &amp; Co</string>"
                                   "<key>Flag</key><true/><key>Inner</key><dict><key>Program</key>"
                                   "<string>no</string></dict><key>Program</key><array><string>/a</string>"
                                   "<integer>3</integer><string>-b</string></array></dict>")),
              expected);
    // The text with an accent stands in UTF-16 there.
    EXPECT_EQ(readPropertyList(binaryList({container(dictionary, {1, 2, 3, 4}),
                                           "\x5C"
                                           "CFBundleName",
                                           "\x57"
                                           "Program",
                                           std::string("\x69\0C\0a\0f\0\xE9\0 \0&\0 \0C\0o", 19),
                                           container(array, {5, 6}), "\x52/a", "\x52-b"})),
              expected);
}

TEST(PropertyList, WhatIsNoneOrWouldNeverEndIsNothing) {
    for (const std::string& bytes :
         {std::string(), std::string("bplist00"), std::string("{ CFBundleName = x; }"),
          xml("<string>x</string>"), xml("<dict><key>a</key>"), std::string(8, '\0'), binaryList({"\x51x"}),
          binaryList({}), binaryList({container(dictionary, {1, 9})}), "bplist00" + std::string(60, '\xFF')})
        EXPECT_EQ(readPropertyList(bytes).value_or(Texts()), Texts()) << bytes.substr(0, 60);
    // A list that holds itself; one of 2^40 values in 40 arrays; levels beyond any stack.
    EXPECT_FALSE(readPropertyList(binaryList({container(array, {1}), container(array, {0})})));
    std::vector<std::string> doubling;
    for (int level = 1; level <= 40; ++level)
        doubling.push_back(container(array, {level, level}));
    doubling.emplace_back("\x51x");
    EXPECT_FALSE(readPropertyList(binaryList(doubling)));
    std::vector<std::string> deep;
    for (int level = 1; level <= 60'000; ++level)
        deep.push_back(container(array, {level}));
    deep.emplace_back("\x51x");
    EXPECT_FALSE(readPropertyList(binaryList(deep)));
    std::string nested;
    for (int level = 0; level < 200'000; ++level)
        nested += "<array>";
    EXPECT_FALSE(readPropertyList(xml(nested)));
    EXPECT_FALSE(readPropertyList("<!DOCTYPE plist [<!ENTITY a \"b\">]>" + xml("<dict/>")));
    // Cut anywhere, or with any byte changed, it is read or it is not.
    const std::string whole = binaryList({container(dictionary, {1, 2}), "\x51k", "\x51v"});
    for (std::size_t index = 0; index < whole.size(); ++index) {
        (void)readPropertyList(whole.substr(0, index));
        for (const int change : {0x01, 0x0F, 0x80, 0xFF}) {
            std::string changed = whole;
            changed[index] = static_cast<char>(changed[index] ^ change);
            (void)readPropertyList(changed);
        }
    }
}

} // namespace
} // namespace tarnwell
