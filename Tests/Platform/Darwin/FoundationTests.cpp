// What this system's own frameworks answer through our seams.

#include "TarnwellCore/Platform/TypeDatabase.hpp"
#include "TarnwellCore/Platform/UUID.hpp"
#include "TarnwellCore/Platform/UserDefaults.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

TEST(SystemDefaults, KeepValuesOfEveryKindUnderTheSuite) {
    const std::string suite = "com.tarnwell.tests." + UUID::random().text();
    const UserDefaults::Values values = {
        {"bool", true},
        {"integer", std::int64_t{1} << 53},
        {"number", 2.5},
        {"whole", 5.0},
        {"text", std::string("a \xC3\xA4")},
        {"bytes", DataValue{std::string("\xFF\0", 2)}},
        {"texts", std::vector<std::string>{"/a", ""}},
        {"date", dateFromReferenceSeconds(774'000'000.25)},
    };
    const auto writer = UserDefaults::suite(suite);
    for (const auto& [key, value] : values)
        writer->set(key, value);
    writer->set("odd", std::vector<std::string>{"/\xFF", "/b"});
    EXPECT_TRUE(writer->synchronize());
    const auto reader = UserDefaults::suite(suite);
    for (const auto& [key, value] : values)
        EXPECT_EQ(reader->object(key), value) << key;
    EXPECT_EQ(reader->stringArray("odd"), (std::vector<std::string>{"/\xFF", "/b"}));

    reader->registerDefaults({{"number", 7.5}, {"only registered", true}});
    EXPECT_EQ(reader->number("number"), 2.5);
    EXPECT_EQ(reader->boolean("only registered"), true);
    for (const auto& [key, value] : values)
        reader->remove(key);
    reader->remove("odd");
    EXPECT_EQ(reader->number("number"), 7.5);
    EXPECT_EQ(writer->object("text"), std::nullopt);
}

TEST(SystemTypes, ConformToWhatFilesAre) {
    using Type = TypeConformance;
    const struct {
        const char* ext;
        Type::Bit bit;
    } cases[] = {
        {"mov", Type::movie},     {"mp3", Type::audio},   {"png", Type::image},    {"ttf", Type::font},
        {"dmg", Type::diskImage}, {"zip", Type::archive}, {"c", Type::sourceCode}, {"sh", Type::script},
        {"txt", Type::text},      {"pdf", Type::pdf},
    };
    for (const auto& each : cases) {
        const std::vector<Type> found = typeConformances(each.ext);
        EXPECT_TRUE(found.size() == 1 && found.front().has(each.bit)) << each.ext;
    }
    // The system makes up a type for what it does not know; it conforms to nothing.
    for (const Type type : typeConformances("zzqx"))
        EXPECT_EQ(type, Type());
}

TEST(SystemPaths, ApplicationSupportLiesInTheHome) {
    const auto folder = applicationSupportDirectory();
    ASSERT_TRUE(folder);
    EXPECT_EQ(*folder, homeDirectory() / "Library/Application Support");
    EXPECT_EQ(expandTilde("~/x/"), homeDirectory().string() + "/x/");
    EXPECT_EQ(resolveLinks("/tmp"), "/private/tmp");
}

} // namespace
} // namespace tarnwell
