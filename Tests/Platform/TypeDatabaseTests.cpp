#include "TarnwellCore/Platform/TypeDatabase.hpp"

#include <gtest/gtest.h>

#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tarnwell {
namespace {

using Type = TypeConformance;

constexpr std::uint16_t none = 0;

struct Expectation {
    std::string_view ext;
    int has;
    int hasNot;
};

const Expectation expectations[] = {
    {"jp2", Type::image, Type::text},
    {"svgz", Type::image, none},
    {"qt", Type::video, Type::audio},
    {"swf", Type::video, none},
    {"mka", Type::audio, Type::video},
    {"afm", Type::font, none},
    {"pfa", Type::font, none},
    {"lzh", Type::archive, none},
    {"jar", Type::archive, Type::application},
    {"apk", Type::archive, Type::application},
    {"iso9660", Type::diskImage, Type::archive},
    {"raw-disk-image", Type::diskImage, none},
    {"f90", Type::sourceCode | Type::text, Type::script},
    {"vala", Type::sourceCode | Type::text, none},
    {"awk", Type::script | Type::text, Type::application},
    {"jsonld", Type::script | Type::text, Type::application},
    {"vcf", Type::text, Type::sourceCode | Type::script},
    {"patch", Type::text, Type::sourceCode | Type::script},
    {"gpx", Type::text, Type::sourceCode | Type::script},
    {"odb", Type::database, Type::archive},
    {"xlsm", Type::spreadsheet, Type::archive},
    {"fods", Type::spreadsheet | Type::text, none},
    {"ppsx", Type::presentation, Type::archive},
    {"docm", Type::text, Type::archive | Type::sourceCode},
    {"o", none, Type::text | Type::application},
    {"so", none, Type::text | Type::application},
    {"nes", none, Type::application},
    {"crdownload", none, Type::archive},
};

TEST(TypeDatabase, FreedesktopTypes) {
    // This format's editor comes from the freedesktop world; a system that calls it text has that database.
    if (!typeConformance("kwd").value_or(Type()).has(Type::text))
        GTEST_SKIP() << "no shared-mime-info database on this machine";
    for (const auto& [ext, has, hasNot] : expectations) {
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
        "",
        " ",
        ".",
        "/",
        "*",
        "?",
        "[",
        "[a-",
        "\\",
        "\xFF\xFE",
        "\xC3",
        "%s%n",
        "~",
        ",v",
        std::string(100'000, 'a'),
        std::string(1, '\0'),
        "\n",
        "jp2\n",
    };
    for (const std::string& ext : extensions)
        EXPECT_FALSE(typeConformance(ext).value_or(Type()).has(Type::image)) << ext;
}

TEST(TypeDatabase, ThreadsGetTheSameAnswers) {
    // Nothing is asked before the threads run: they also race for the loading of the database.
    using Answers = std::vector<std::optional<Type>>;
    std::vector<Answers> answers(4);
    std::vector<std::thread> threads;
    for (Answers& own : answers)
        threads.emplace_back([&own] {
            for (int round = 0; round < 20; ++round) {
                own.clear();
                for (const Expectation& each : expectations)
                    own.push_back(typeConformance(each.ext));
                own.push_back(typeConformance("zz" + std::to_string(round)));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const Answers& own : answers)
        EXPECT_EQ(own, answers.front());
    for (std::size_t index = 0; index < std::size(expectations); ++index)
        EXPECT_EQ(answers.front()[index], typeConformance(expectations[index].ext));
}

} // namespace
} // namespace tarnwell
