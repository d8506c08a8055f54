#include "TarnwellCore/Analysis/CleanupRule.hpp"
#include "TarnwellCore/Analysis/CleanupRuleCoding.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace tarnwell {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

CleanupRule fullRule() {
    return {.id = "an id",
            .name = "N\xC3\xA4me \"quoted\"\n",
            .isEnabled = false,
            .locationPrefix = "~/Downloads",
            .categories = {FileCategory::video, FileCategory::folder},
            .extensions = {"mkv", "mp4"},
            .minimumSize = std::numeric_limits<std::int64_t>::max(),
            .olderThanDays = -3,
            .lastOpenedBeforeDays = std::numeric_limits<std::int64_t>::min()};
}

std::string decodingError(std::string_view json) {
    try {
        decodeCleanupRule(json);
    } catch (const DataCorruptionError& error) {
        return error.what();
    }
    return "";
}

TEST(CleanupRule, LocationsAreNormalized) {
    const struct {
        std::optional<std::string> given;
        std::optional<std::string> normal;
    } cases[] = {
        {std::nullopt, std::nullopt},
        {"", std::nullopt},
        {" \t\n", std::nullopt},
        {"/", "/"},
        {" / ", "/"},
        {"/a/b///", "/a/b"},
        {"~/Downloads/", "~/Downloads"},
        {"\n/a b \r\n", "/a b"},
        {"\xE2\x80\x83/x\xC2\xA0", "/x"},
        {"/\xFF/ ", "/\xFF"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(CleanupRule::normalizedLocation(each.given), each.normal) << each.given.value_or("none");
}

TEST(CleanupRule, ExtensionsAreNormalized) {
    EXPECT_THAT(CleanupRule::normalizedExtensions({" .DMG", "dmg", "..Tar.gz", " ", ".", "", "pkg\n", "DMG"}),
                ElementsAre("dmg", "tar.gz", "pkg"));
}

TEST(CleanupRule, ConditionsAreSummarised) {
    const CleanupRule everything{.locationPrefix = "~/Downloads",
                                 .minimumSize = 1'500'000'000,
                                 .olderThanDays = 30,
                                 .lastOpenedBeforeDays = 1};
    CleanupRule kinds{
        .categories = {FileCategory::packagesInstallers, FileCategory::archives, FileCategory::video}};
    EXPECT_EQ(CleanupRule().conditionSummary(), "Matches anything in the scan");
    EXPECT_EQ((CleanupRule{.lastOpenedBeforeDays = 2}).conditionSummary(),
              "Anything, last opened over 2 days ago");
    EXPECT_EQ(everything.conditionSummary(),
              "Anything in ~/Downloads over 1.5 GB, modified over 30 days ago, "
              "last opened over 1 day ago");
    EXPECT_EQ(kinds.conditionSummary(), "Installers, Archives or Video");
    kinds.extensions = {"zip", "iso"};
    EXPECT_EQ(kinds.conditionSummary(), "Installers, Archives or Video with .zip or .iso");
}

TEST(CleanupRule, PresetsAndDrafts) {
    const std::string home = homeDirectory();
    std::vector<std::string> texts;
    for (const CleanupRule& preset : CleanupRule::presets()) {
        EXPECT_TRUE(preset.isEnabled);
        texts.push_back(preset.id + ", " + preset.name + ": " + preset.conditionSummary());
    }
    EXPECT_THAT(
        texts,
        ElementsAre("autopilot.preset.downloads-30d-100mb, Downloads older than 30 days and larger than "
                    "100 MB: Anything in " +
                        home + "/Downloads over 100 MB, modified over 30 days ago",
                    "autopilot.preset.dmg-pkg-180d, Old DMG/PKG installers: .dmg or .pkg, modified over "
                    "180 days ago",
                    "autopilot.preset.xcode-archives-90d, Xcode archives older than 90 days: .xcarchive in " +
                        home + "/Library/Developer/Xcode/Archives, modified over 90 days ago"));

    const CleanupRule draft = CleanupRule::makeDraft();
    EXPECT_NE(draft.id, CleanupRule::makeDraft().id);
    EXPECT_THAT(CleanupRule::rules(CleanupRule::encodeStored({draft})), ElementsAre(draft));
}

TEST(CleanupRuleCoding, ListsSurviveStoring) {
    const std::vector<CleanupRule> rules{fullRule(), {.id = "2", .name = "bare"}};
    const std::string stored = CleanupRule::encodeStored(rules);
    EXPECT_EQ(CleanupRule::rules(stored), rules);
    EXPECT_EQ(CleanupRule::rules("\xEF\xBB\xBF" + stored), rules);
    EXPECT_THAT(stored, testing::Not(HasSubstr("null"))); // what is absent has no key
    EXPECT_THAT(CleanupRule::rules(CleanupRule::encodeStored({})), IsEmpty());

    const CleanupRule broken{.id = "\xFF", .name = "n", .locationPrefix = "/\x80"};
    ASSERT_EQ(CleanupRule::rules(CleanupRule::encodeStored({broken})).size(), 1u);
}

TEST(CleanupRuleCoding, DecodesWhatIsThere) {
    const CleanupRule bare{.id = "i", .name = "n"};
    EXPECT_EQ(decodeCleanupRule(R"({"id":"i","name":"n"})"), bare);
    EXPECT_EQ(
        decodeCleanupRule(R"({"id":"i","name":"n","isEnabled":null,"locationPrefix":null,"categories":null,
                                    "extensions":null,"minimumSize":null,"olderThanDays":null,
                                    "lastOpenedBeforeDays":null,"unknown":[[{}]]})"),
        bare);
    // Nothing is normalised on the way in, numbers may be written any way, of two keys the last one counts.
    EXPECT_EQ(decodeCleanupRule(R"({"name":"x","id":"i","name":"n","extensions":["a"],"extensions":[" .DMG"],
                                    "minimumSize":1e8,"olderThanDays":30.0,"locationPrefix":"~/D/",
                                    "categories":[19, 0.0]})"),
              (CleanupRule{.id = "i",
                           .name = "n",
                           .locationPrefix = "~/D/",
                           .categories = {FileCategory::folder, FileCategory::video},
                           .extensions = {" .DMG"},
                           .minimumSize = 100'000'000,
                           .olderThanDays = 30}));
    for (const char* const zero : {"0e99", "0e999", "-0.0", "0.00000000001e-2147483639"})
        EXPECT_EQ(decodeCleanupRule(R"({"id":"i","name":"n","olderThanDays":)" + std::string(zero) + "}"),
                  (CleanupRule{.id = "i", .name = "n", .olderThanDays = 0}))
            << zero;
    // Half of a character means nothing, and costs no other rule.
    const auto rules = CleanupRule::rules(
        R"([{"id":"\udc00","name":"n"}, {"id":"\ud800\u0041","name":"\ud83d\ude00 \\ud800","\ud800":1}])");
    EXPECT_THAT(rules, ElementsAre(CleanupRule{.id = "\uFFFD", .name = "n"},
                                   CleanupRule{.id = "\uFFFDA", .name = "\U0001F600 \\ud800"}));
    EXPECT_EQ(CleanupRule::rules(CleanupRule::encodeStored(rules)), rules);
}

TEST(CleanupRuleCoding, OneBadRuleDoesNotLoseTheOthers) {
    constexpr std::string_view start = R"({"id":"i","name":"n",)";
    std::vector<std::string> bad{
        R"({"id":"i"})",
        R"({"name":"n"})",
        R"({"id":"","name":"n"})",
        R"({"id":"i","name":""})",
        R"({"id":null,"name":"n"})",
        R"({"id":7,"name":"n"})",
        R"({"id":"e999 \" 1e999","name":"n","minimumSize":-12.5E+00000000000000000000999})",
        "null",
        "[]",
        "3",
        R"("text")"};
    for (const char* const field :
         {R"("isEnabled":1)", R"("locationPrefix":[])", R"("categories":3)", R"("categories":[200])",
          R"("categories":[-1])", R"("categories":["video"])", R"("extensions":[null])",
          R"("extensions":"dmg")", R"("minimumSize":"100")", R"("minimumSize":0.5)",
          R"("minimumSize":9223372036854775808)", R"("minimumSize":1e999)",
          R"("minimumSize":1.7976931348623159e308)", R"("minimumSize":-1e19)", R"("olderThanDays":true)",
          R"("lastOpenedBeforeDays":{})"})
        bad.push_back(std::string(start) + field + "}");
    bad.push_back(std::string(start) + R"("olderThanDays":1)" + std::string(5000, '0') + "}");
    for (const std::string& each : bad) {
        const std::string list = R"([{"id":"a","name":"A"},)" + each + R"(,{"id":"b","name":"B"}])";
        EXPECT_THAT(CleanupRule::rules(list),
                    ElementsAre(CleanupRule{.id = "a", .name = "A"}, CleanupRule{.id = "b", .name = "B"}))
            << each;
        EXPECT_NE(decodingError(each), "") << each;
    }
    for (const char* const each : {R"({"id":"i"})", R"({"id":"","name":"n"})", "{}"})
        EXPECT_EQ(decodingError(each), "A cleanup rule needs an id and a name.") << each;
}

TEST(CleanupRuleCoding, DamagedDataIsSurvived) {
    for (const char* const each :
         {"", " ", "{}", "nul", "[", "[}", "[1,]", "[] x", "\xFF", "\"[]\"", "[\"\\ud800\"]"})
        EXPECT_THAT(CleanupRule::rules(each), IsEmpty()) << each;
    EXPECT_THAT(CleanupRule::rules(std::string_view("[]\0[]", 5)), IsEmpty());

    // Deeper than any stack, closed and not closed.
    const std::string deep(2'000'000, '[');
    EXPECT_THAT(CleanupRule::rules(deep), IsEmpty());
    EXPECT_THAT(CleanupRule::rules(deep + std::string(deep.size(), ']')), IsEmpty());
    EXPECT_THAT(CleanupRule::rules("[{\"id\":\"i\",\"name\":\"n\",\"x\":" + deep +
                                   std::string(deep.size(), ']') + "}]"),
                ElementsAre(CleanupRule{.id = "i", .name = "n"}));

    const std::string stored =
        CleanupRule::encodeStored({fullRule(), fullRule(), {.id = "2", .name = "bare"}});
    for (std::size_t length = 0; length < stored.size(); ++length)
        EXPECT_THAT(CleanupRule::rules(std::string_view(stored).substr(0, length)), IsEmpty()) << length;
    // Any byte may be any other: some rules may be lost or differ, and all that is left has an id and a name.
    for (std::size_t position = 0; position < stored.size(); ++position) {
        for (const char byte : {'\0', '"', '\\', '{', ']', ',', '9', '\xC3', ' '}) {
            std::string damaged = stored;
            damaged[position] = byte;
            const auto rules = CleanupRule::rules(damaged);
            EXPECT_LE(rules.size(), 3u);
            for (const CleanupRule& rule : rules)
                EXPECT_FALSE(rule.id.empty() || rule.name.empty());
        }
    }
}

} // namespace
} // namespace tarnwell
