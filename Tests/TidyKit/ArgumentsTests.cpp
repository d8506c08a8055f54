// What is understood of a command line, and what is said of one that is not.

#include "TarnwellTidyKit/Commands/TidyCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyHelpText.hpp"
#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include "Tests/TidyKit/Scene.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <variant>

namespace tarnwell {
namespace {

using test::Words;
using testing::HasSubstr;

TEST(TidyArguments, OptionsMayStandAnywhereAndTheLastCounts) {
    const ReportRequest expected{.folder = "[a],b",
                                 .top = 3,
                                 .scan = {.sizeMode = SizeMode::allocated,
                                          .excludedPaths = {"x", "[y]"},
                                          .excludedNames = {"-n"},
                                          .crossFileSystems = true,
                                          .threads = 2},
                                 .output = {.json = true}};
    const Words lines[] = {
        {"report", "[a],b", "--top", "3", "--size-mode=allocated", "--exclude", "x", "--exclude=[y]",
         "--exclude-name", "-n", "--cross", "--threads", "2", "--json"},
        {"--json",      "--size-mode", "apparent", "report",
         "--threads=1", "--exclude=x", "--top=9",  "--exclude",
         "[y]",         "--top",       "3",        "--threads",
         "2",           "--cross",     "--cross",  "--exclude-name=-n",
         "--size-mode", "allocated",   "--",       "[a],b"},
    };
    for (const Words& line : lines)
        EXPECT_EQ(std::get<ReportRequest>(readTidyCommand(line)), expected);
    EXPECT_EQ(std::get<ReportRequest>(readTidyCommand(Words{"report", "--", "--json"})).folder, "--json");
    EXPECT_EQ(std::get<ReportRequest>(readTidyCommand(Words{"report", "findings"})).folder, "findings");
}

TEST(TidyArguments, WhatIsNotUnderstoodIsSaidAndTouchesNothing) {
    test::Scene scene;
    scene.services = {}; // any call would throw
    const struct {
        Words line;
        std::string message;
    } cases[] = {
        {{"repotr", "x"}, "Did you mean report?"},
        {{"rep"}, "Did you mean report?"},
        {{"/tmp"}, "tarnwell-tidy report /tmp"},
        {{"--read-only", "/tmp", "/"}, "'/' is too much"},
        {{"/tmp", "--top", "3"}, "no option '--top'"},
        {{"--json"}, "goes with a command"},
        {{"qqqqqqqq\033[2J"}, "There is no command 'qqqqqqqq\\x1B[2J'."},
        {{"report"}, "report needs FOLDER."},
        {{"report", ""}, "An empty word is no FOLDER."},
        {{"report", "a", "b"}, "'b' is too much"},
        {{"report", "a", "--tpo", "3"}, "Did you mean --top?"},
        {{"report", "a", "--top"}, "--top needs a value"},
        {{"report", "a", "--top="}, "--top"},
        {{"find", "a", "--older", ""}, "--older needs a value: --older AGE."},
        {{"find", "a", "--exclude="}, "--exclude needs a value"},
        {{"rules", "lits"}, "Did you mean list?"},
        {{"schedule", "dayly", "a"}, "Did you mean daily?"},
        {{"trash", "lst"}, "Did you mean trash list?"},
        {{"report", "a", "--top", "-1"}, "from 0 up, not '-1'"},
        {{"report", "a", "--top", "99999999999999999999"}, "--top takes a whole number"},
        {{"report", "a", "--json=yes"}, "--json takes no value."},
        {{"report", "a", "--size-mode", "alocated"}, "Did you mean allocated?"},
        {{"report", "a", "--threads", "0"}, "from 1 up"},
        {{"report", "a", "-x"}, "written ./-x."},
        {{"--jsn", "report", "a"}, "Did you mean --json?"},
        {{"--wat"}, "no option '--wat'"},
        {{"help", "reprot"}, "Did you mean report?"},
        {{"volumes", "x"}, "volumes takes no 'x'."},
        {{"volumes", "--updates", "2"}, "go with --watch"},
        {{"draw", "a", "--as", "pie"}, "--as is one of treemap, sunburst, icicle, bars"},
        {{"draw", "a", "--output", "x.png"}, "its name does not say"},
        {{"draw", "a", "--output", "-", "--open"}, "--output - writes the picture alone"},
        {{"changes", "a", "--digest", "--top", "3"}, "do not go with it"},
        {{"schedule", "monthly", "a"}, "not 'monthly'"},
        {{"schedule", "daily"}, "schedule daily takes a folder"},
        {{"schedule", "off", "a"}, "takes nothing more"},
        {{"schedule", "daily", "a", "--force"}, "goes with schedule run"},
        {{"settings", "set", "treemapDepht", "3"}, "Did you mean treemapDepth?"},
        {{"settings", "set", "lastScanPath", "/"}, "cannot be set"},
        {{"settings", "list", "x"}, "settings takes list"},
    };
    for (const auto& [line, message] : cases) {
        const TidyResult result = scene.run(line);
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(line);
        EXPECT_EQ(result.standardOutput, "");
        EXPECT_THAT(result.standardError, HasSubstr(message));
        EXPECT_THAT(result.standardError, testing::StartsWith("tarnwell-tidy: "));
    }
    EXPECT_EQ(scene.run({}).standardError, tidyHelp()) << "nothing asked for";
    const BrowseRequest browse{
        .folder = "./x y",
        .isReadOnly = true,
        .color = TidyColor::never,
        .scan = {.sizeMode = SizeMode::allocated, .excludedNames = {"b"}, .threads = 2}};
    EXPECT_EQ(
        std::get<BrowseRequest>(readTidyCommand(Words{"--color=never", "--size-mode", "allocated", "./x y",
                                                      "--read-only", "--exclude-name=b", "--threads", "2"})),
        browse);
}

TEST(TidyArguments, HelpKnowsEveryCommandAndOptionAndFitsATerminal) {
    const test::Scene scene;
    for (const TidyCommandSpec* command : tidyCommandSpecs()) {
        const std::string name(command->name);
        const std::string help = scene.text({name, "--help"});
        EXPECT_EQ(help, scene.text({"help", name}));
        EXPECT_THAT(tidyHelp(), HasSubstr("  " + name));
        forEachOption(*command, [&](const TidyOptionSpec& option) {
            EXPECT_THAT(help,
                        HasSubstr("  " + std::string(option.name == "--help" ? "-h, --help" : option.name)));
            EXPECT_LE(option.help.size(), 60u);
        });
        for (const std::string& text : {help, tidyHelp()})
            for (std::size_t start = 0, end = 0; (end = text.find('\n', start)) != std::string::npos;
                 start = end + 1)
                EXPECT_LE(end - start, 82u) << text.substr(start, end - start); // a dash takes three bytes
    }
}

TEST(TidyArguments, ShellsAreToldWhatMayStandInAPlace) {
    const struct {
        Words words;
        std::string lines;
    } cases[] = {
        {{"rep"}, "report\tWhat is in a folder, on one page\n:folders\n"},
        {{"--read"}, "--read-only\tBrowse without being able to change anything\n"},
        {{"--threads", "2", "/", "--c"},
         "--cross\tEnter other file systems\n--color\tUse colours: auto, always, never\n"},
        {{"/", "--exclude", ""}, ":paths\n"},
        {{"/", ""}, ""},
        {{"report", ""}, ":folders\n"},
        {{"report", "--no"}, "--no-hidden\tLeave out what is hidden\n"},
        {{"--json", "report", "--top", ""}, ""},
        {{"report", "--color", "n"}, "never\tUse colours: auto, always, never\n"},
        {{"report", "--exclude", ""}, ":paths\n"},
        {{"report", "--", "--no"}, ":folders\n"},
        {{"settings", "re"}, "reset\tWhat all commands go by unless an option says otherwise\n"},
        {{"rules", "test", ""}, ":folders\n"},
        {{"rules", "remove", ""}, ""},
        {{"nothing", ""}, ""},
    };
    for (const auto& [words, lines] : cases)
        EXPECT_EQ(tidyCompletions(words), lines) << testing::PrintToString(words);
}

TEST(TidyQuantities, SizesAndAgesAreReadAsPeopleTypeThem) {
    constexpr std::int64_t none = -1;
    const std::pair<std::string_view, std::int64_t> sizes[] = {
        {"0", 0},
        {"4096", 4096},
        {"500MB", 500'000'000},
        {"1.5 GiB", 1'610'612'736},
        {"2k", 2000},
        {"2KiB", 2048},
        {"0.1GB", 100'000'000},
        {".5kb", 500},
        {"7EiB", 8'070'450'532'247'928'832},
        {"9223372036854775807", INT64_MAX},
        {"1.9 B", 1},
        {"8EiB", none},
        {"9.3EB", none},
        {"9223372036854775808", none},
        {"", none},
        {"-1", none},
        {"1.", none},
        {"MB", none},
        {"1 000", none},
        {"1XB", none},
        {"1kbb", none},
        {"1e3", none},
        {"1MB ", none},
        {"0x10", none},
    };
    for (const auto& [text, bytes] : sizes)
        EXPECT_EQ(sizeFromText(text).value_or(none), bytes) << text;

    ::setenv("TZ", "America/New_York", 1);
    ::tzset();
    const Date now(std::chrono::duration<double>(1'700'000'000));
    const std::pair<std::string_view, double> moments[] = {
        {"12h", 1'700'000'000 - 43'200.0},
        {"30d", 1'700'000'000 - 30 * 86'400.0},
        {"6w", 1'700'000'000 - 42 * 86'400.0},
        {"3mo", 1'700'000'000 - 90 * 86'400.0},
        {"1y", 1'700'000'000 - 365 * 86'400.0},
        {"2024-05-01", 1'714'536'000},
        {"2024-01-31", 1'706'677'200},
        {"2024-05-01T09:30:00Z", 1'714'555'800},
        {"2023-02-29", none},
        {"30", none},
        {"d", none},
        {"1.5d", none},
        {"-3d", none},
        {"99999999999y", none},
        {"30 d", none},
        {"2024-5-1", none},
    };
    for (const auto& [text, seconds] : moments) {
        const auto moment = momentFromText(text, now);
        EXPECT_EQ(moment ? moment->time_since_epoch().count() : none, seconds) << text;
    }
    ::unsetenv("TZ");
    ::tzset();
    EXPECT_EQ(daysFromText("6w"), 42);
    EXPECT_EQ(daysFromText("12h"), std::nullopt);
}

} // namespace
} // namespace tarnwell
