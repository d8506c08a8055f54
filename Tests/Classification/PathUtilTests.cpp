#include "TarnwellCore/Classification/PathUtil.hpp"

#include <gtest/gtest.h>

#include <array>

namespace tarnwell::PathUtil {
namespace {

TEST(PathUtil, Extensions) {
    const struct {
        std::string name;
        std::string extension;
    } cases[] = {
        {"", ""},
        {"README", ""},
        {"photo.RAW", "raw"},
        {"archive.tar.GZ", "gz"},
        {".venv", "venv"},
        {"trailing.", ""},
        {"..", ""},
        {"a. b", " b"},
        {"x.\xC3\x84[Z", "\xC3\xA4[z"},
        {"x.\xE2\x84\xAAM", "km"},            // the sign for kelvin is a letter
        {"x.\xFF\xC3\x84Z", "\xFF\xC3\x84z"}, // no UTF-8
        {"x." + std::string(300, 'q'), std::string(300, 'q')},
        {"x." + std::string(300, 'Q'), std::string(300, 'q')},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(fileExtension(each.name), each.extension) << each.name;
        std::array<char, 400> buffer;
        EXPECT_EQ(lowerCaseExtension(each.name, buffer), each.extension) << each.name;
    }
}

TEST(PathUtil, ExtensionBeyondTheBufferIsLeftAsItIs) {
    std::array<char, 4> buffer = {};
    EXPECT_EQ(lowerCaseExtension("a.JPEG", buffer), "jpeg");
    EXPECT_EQ(lowerCaseExtension("a.MPEG4", buffer), "MPEG4");
    EXPECT_EQ(lowerCaseExtension("a.\xC8\xBA\xC8\xBA", buffer),
              "\xC8\xBA\xC8\xBA"); // six bytes in lower case
    EXPECT_EQ(std::string_view(buffer.data(), 4), "jpeg");

    const std::string name = "a.webarchive";
    const std::string_view inPlace = lowerCaseExtension(name, buffer);
    EXPECT_EQ(inPlace.data(), name.data() + 2);
}

TEST(PathUtil, LastComponents) {
    const struct {
        std::string_view path;
        std::string_view component;
        std::string_view stripped;
    } cases[] = {
        {"/", "/", "/"}, {"//", "/", "/"}, {"/a", "a", "/a"}, {"/a/b.app//", "b.app", "/a/b.app"},
        {"a", "a", "a"}, {"", "", ""},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(lastComponent(each.path), each.component) << each.path;
        EXPECT_EQ(withoutTrailingSlashes(each.path), each.stripped) << each.path;
    }
}

} // namespace
} // namespace tarnwell::PathUtil
