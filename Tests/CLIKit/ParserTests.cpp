#include "TarnwellCLIKit/CLIParser.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarnwell {
namespace {

using Words = std::vector<std::string>;

std::string wrapped(const std::string& text) {
    return "tarnwell: " + text + "\nSee `tarnwell --help` for usage.\n";
}

TEST(CLIParser, Commands) {
    const struct {
        Words arguments;
        CLICommand command;
    } cases[] = {
        {{"scan", "/x"}, CLIScanRequest{"/x"}},
        {{"scan", "--json", "/x", "--json"}, CLIScanRequest{"/x", CLITextFormat::json}},
        {{"scan", "/x", "--csv", "--depth", "3", "--depth=+2", "--top=7"},
         CLIScanRequest{"/x", CLITextFormat::csv, 2, 7}},
        {{"scan", "--top", "0", "--depth", "-0", "x"}, CLIScanRequest{"x", CLITextFormat::human, 0, 0}},
        {{"scan", "--depth=9223372036854775807", "x"},
         CLIScanRequest{"x", CLITextFormat::human, 9'223'372'036'854'775'807}},
        {{"scan", "--size-mode", "apparent", "--size-mode=reclaimable", "~/x"},
         CLIScanRequest{"~/x", CLITextFormat::human, 1, std::nullopt, SizeMode::reclaimable}},
        {{"snapshot", "save", "/x", "--json"}, CLISnapshotSave{"/x", true}},
        {{"snapshot", "list", "--json", "--json"}, CLISnapshotList{true}},
        {{"snapshot", "diff", "a", "--json", ""}, CLISnapshotDiff{"a", "", true}},
    };
    for (const auto& each : cases) {
        const auto result = CLIParser::parse(each.arguments);
        ASSERT_TRUE(result) << result.error().message;
        EXPECT_EQ(*result, each.command) << testing::PrintToString(each.arguments);
    }
}

TEST(CLIParser, HelpWhereverItIsReached) {
    const Words cases[] = {
        {"--help"},
        {"help", "scan"},
        {"-h", "nonsense"},
        {"scan", "--help", "/tmp"},
        {"scan", "/tmp", "-h", "--depth", "x"},
        {"snapshot", "help"},
        {"snapshot", "save", "-h"},
        {"snapshot", "list", "--help", "x"},
        {"snapshot", "diff", "a", "b", "c", "-h"},
    };
    for (const Words& arguments : cases)
        EXPECT_EQ(CLIParser::parse(arguments), CLICommand(CLIHelp{})) << testing::PrintToString(arguments);
}

TEST(CLIParser, Errors) {
    const std::string depth = "--depth needs a non-negative integer";
    const std::string top = "--top needs a non-negative integer";
    const std::string mode = "--size-mode needs apparent, allocated, or reclaimable";
    const std::string formats = "pass either --json or --csv";
    const struct {
        Words arguments;
        std::string text;
    } cases[] = {
        {{}, "no command given"},
        {{"Scan"}, "unknown command 'Scan'"},
        {{"\xFF'"}, "unknown command '\xFF''"},
        {{"scan"}, "scan requires a path"},
        {{"scan", ""}, "scan requires a path"},
        {{"scan", "", "/b"}, "unexpected argument '/b'"},
        {{"scan", "/a", "/b"}, "unexpected argument '/b'"},
        {{"scan", "-"}, "unknown flag '-'"},
        {{"scan", "--jso", "/a"}, "unknown flag '--jso'"},
        {{"scan", "--depths", "1", "/a"}, "unknown flag '--depths'"},
        {{"scan", "--json", "--csv", "/x"}, formats},
        {{"scan", "/x", "--depth"}, depth},
        {{"scan", "--depth", "-1", "--help"}, depth},
        {{"scan", "--depth=", "/x"}, depth},
        {{"scan", "--top", "--json", "/x"}, top},
        {{"scan", "--size-mode"}, mode},
        {{"scan", "--size-mode=Allocated", "/x"}, mode},
        {{"snapshot"}, "snapshot requires save, diff, or list"},
        {{"snapshot", "drop"}, "unknown snapshot command 'drop'"},
        {{"snapshot", "save"}, "snapshot save requires a path"},
        {{"snapshot", "save", ""}, "snapshot save requires a path"},
        {{"snapshot", "save", "a", "b"}, "unexpected argument 'b'"},
        {{"snapshot", "save", "a", "--csv"}, "snapshot save accepts --json"},
        {{"snapshot", "save", "--depth", "1", "a"}, "unknown flag '--depth'"},
        {{"snapshot", "list", "x"}, "unexpected argument 'x'"},
        {{"snapshot", "list", "--csv"}, "snapshot list accepts --json"},
        {{"snapshot", "diff", "a"}, "snapshot diff requires <before> and <after>"},
        {{"snapshot", "diff", "a", "b", "c"}, "snapshot diff requires <before> and <after>"},
        {{"snapshot", "diff", "a", "b", "--csv"}, "snapshot diff accepts --json"},
    };
    for (const auto& each : cases) {
        const auto result = CLIParser::parse(each.arguments);
        ASSERT_FALSE(result) << testing::PrintToString(each.arguments);
        EXPECT_EQ(result.error().message, wrapped(each.text)) << testing::PrintToString(each.arguments);
    }
}

TEST(CLIParser, NonNegativeIntegers) {
    for (const char* text : {"", "+", "-", "-1", "+-1", "-+1", "++1", " 1", "1 ", "1_000", "0x1", "1.5",
                             "1e3", "\xD9\xA1", "9223372036854775808"})
        EXPECT_EQ(CLIParser::nonNegative(text), std::nullopt) << text;
    EXPECT_EQ(CLIParser::nonNegative("+3"), 3);
    EXPECT_EQ(CLIParser::nonNegative("-0"), 0);
    EXPECT_EQ(CLIParser::nonNegative("0007"), 7);
    EXPECT_EQ(CLIParser::nonNegative(std::string_view("1\0", 2)), std::nullopt);
}

} // namespace
} // namespace tarnwell
