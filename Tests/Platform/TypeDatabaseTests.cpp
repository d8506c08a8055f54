#include "TarnwellCore/Platform/TypeDatabase.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace tarnwell {
namespace {

using Type = TypeConformance;

constexpr std::uint16_t none = 0;

/// Of extensions that nobody disputes.
std::optional<TypeConformance> typeConformance(std::string_view ext) {
    const auto conformances = typeConformances(ext);
    return conformances.size() == 1 ? std::optional(conformances.front()) : std::nullopt;
}

TEST(TypeDatabase, FreedesktopTypes) {
    // This format's editor comes from the freedesktop world; a system that calls it text has that database.
    if (!typeConformance("kwd").value_or(Type()).has(Type::text))
        GTEST_SKIP() << "no shared-mime-info database on this machine";
    const struct {
        const char* ext;
        int has;
        int hasNot;
    } cases[] = {
        {"jp2", Type::image, Type::text},
        {"swf", Type::video, none},
        {"mka", Type::audio, Type::video},
        {"pfa", Type::font, none},
        {"lzh", Type::archive, none},
        {"jar", Type::archive, Type::application},
        {"apk", Type::archive, Type::application},
        {"iso9660", Type::diskImage, Type::archive},
        {"raw-disk-image", Type::diskImage, none},
        {"f90", Type::sourceCode | Type::text, Type::script},
        {"awk", Type::script | Type::text, Type::application},
        {"vcf", Type::text, Type::sourceCode | Type::script},
        {"odb", Type::database, Type::archive},
        {"xlsm", Type::spreadsheet, Type::archive},
        {"ppsx", Type::presentation, Type::archive},
        {"docm", Type::text, Type::archive | Type::sourceCode},
        {"o", none, Type::text | Type::application},
        {"nes", none, Type::application},
        {"crdownload", none, Type::archive},
    };
    for (const auto& [ext, has, hasNot] : cases) {
        const auto conformance = typeConformance(ext);
        ASSERT_TRUE(conformance) << ext;
        for (int bit = Type::movie; bit <= Type::pdf; bit *= 2) {
            const bool found = conformance->has(static_cast<Type::Bit>(bit));
            EXPECT_TRUE(found || (has & bit) == 0) << ext << " lacks " << bit;
            EXPECT_FALSE(found && (hasNot & bit) != 0) << ext << " has " << bit;
        }
    }
    EXPECT_EQ(typeConformance("zzqx"), std::nullopt);
    EXPECT_EQ(typeConformance("6"), std::nullopt); // libexample.so.6
    // What no file name holds is no way to another file's type.
    EXPECT_EQ(typeConformance("d/x.jp2"), std::nullopt);
    EXPECT_EQ(typeConformance("jp2/"), std::nullopt);
    EXPECT_EQ(typeConformance(std::string_view("jp2\0", 4)), std::nullopt);
}

TEST(TypeDatabase, AnyBytesAreAnswered) {
    const std::string extensions[] = {
        "", ".", "*", "[", "[a-", "\\", "\xFF\xFE", "%s%n", "\n", "~", std::string(100'000, 'a')};
    for (const std::string& ext : extensions)
        EXPECT_FALSE(typeConformance(ext).value_or(Type()).has(Type::image)) << ext;
}

} // namespace
} // namespace tarnwell
