// The programs of examples/ as their readers would run them, and the one that the README shows.

#include "TarnwellCore/Analysis/Shell.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Terminal.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const fs::path programs = TARNWELL_EXAMPLES;
const fs::path checkout = fs::path(TARNWELL_TESTS).parent_path();

CommandResult run(const char* program, const std::vector<std::string>& arguments) {
    const auto result = Shell::run(programs / program, arguments, 60);
    if (!result) {
        ADD_FAILURE() << program << " did not start";
        return {};
    }
    return *result;
}

std::size_t count(std::string_view text, std::string_view part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos;
         at = text.find(part, at + part.size()))
        ++found;
    return found;
}

pid_t startOn(const test::Terminal& terminal, const char* program, const std::string& argument) {
    const std::string file = programs / program;
    const pid_t child = ::fork();
    if (child == 0) {
        terminal.control();
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            terminal.replace(stream);
        ::execl(file.c_str(), file.c_str(), argument.c_str(), nullptr);
        ::_exit(126);
    }
    return child;
}

TEST(Examples, Usage) {
    const struct {
        const char* program;
        std::vector<std::vector<std::string>> bad;
    } cases[] = {
        {"largest-files", {}},
        {"scan-progress", {{}, {""}, {"-x"}, {"/", "/"}}},
        {"space-savers", {{"--home"}, {"/", "/"}}},
        {"treemap-svg",
         {{},
          {"-x"},
          {"/", "0"},
          {"/", "3x"},
          {"/", "100"},
          {"/", "2", "large"},
          {"/", "2", "apparent", "4"}}},
    };
    for (const auto& [program, bad] : cases) {
        SCOPED_TRACE(program);
        const CommandResult missing = run(program, {"/no/such/folder"});
        EXPECT_EQ(missing, (CommandResult{1, "", "/no/such/folder does not exist.\n"}));
        if (bad.empty())
            continue;
        const CommandResult help = run(program, {"--help"});
        EXPECT_THAT(help.standardOutput, StartsWith("usage: " + std::string(program)));
        EXPECT_EQ(help, (CommandResult{0, help.standardOutput, ""}));
        for (const auto& arguments : bad)
            EXPECT_EQ(run(program, arguments), (CommandResult{2, "", help.standardOutput}))
                << testing::PrintToString(arguments);
    }
}

TEST(Examples, TheProgramOfTheReadmeListsFiles) {
    const test::TemporaryFolder folder;
    (void)folder.makeFile("small", 1'000);
    (void)folder.makeFile("sub/large", 2'000);
    (void)folder.makeFile("empty");
    const std::string path = folder.path();
    const CommandResult result = run("largest-files", {path});
    EXPECT_EQ(result.standardOutput, "2 KB  " + path + "/sub/large\n1 KB  " + path + "/small\n");
    EXPECT_EQ(result.exitCode, 0);

    (void)folder.makeFile("odd/\x1B[2J", 3'000);
    EXPECT_EQ(run("largest-files", {folder / "odd"}).standardOutput, "3 KB  " + path + "/odd/\x1B[2J\n");
    test::Terminal terminal;
    const pid_t child = startOn(terminal, "largest-files", folder / "odd");
    EXPECT_EQ(terminal.readToEnd(), "3 KB  " + path + "/odd/\\x1B[2J\r\n");
    ::waitpid(child, nullptr, 0);

    const std::string source = test::readFile(checkout / "examples/LargestFiles.cpp");
    EXPECT_EQ(count(test::readFile(checkout / "README.md"), "```cpp\n" + source + "```\n"), 1u)
        << "the program in README.md is not examples/LargestFiles.cpp";
}

TEST(Examples, ProgressNeedsATerminal) {
    const test::TemporaryFolder folder;
    (void)folder.makeFile("sub/file", 3'000);
    const CommandResult result = run("scan-progress", {folder.path()});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardError, "");
    EXPECT_THAT(result.standardOutput, StartsWith(folder.path().string() + ": "));
    EXPECT_THAT(result.standardOutput, HasSubstr(", 1 files and 1 folders in "));
    EXPECT_THAT(result.standardOutput, HasSubstr("\n4 KB  sub\n"));
    EXPECT_EQ(result.standardOutput.find_first_of("\r\033"), std::string::npos);
}

TEST(Examples, ControlCEndsAScanAndLeavesTheTerminalAlone) {
    test::Terminal terminal;
    const pid_t child = startOn(terminal, "scan-progress", "/usr");
    std::string shown;
    bool isInterrupted = false;
    for (std::string piece = terminal.read(); !piece.empty(); piece = terminal.read()) {
        shown += piece;
        if (!isInterrupted && shown.find(" files, ") != std::string::npos) {
            isInterrupted = true;
            terminal.type("\x03");
        }
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    if (WEXITSTATUS(status) == 0)
        GTEST_SKIP() << "/usr was scanned before it could be interrupted";
    EXPECT_EQ(WEXITSTATUS(status), 130) << shown;
    EXPECT_THAT(shown, StartsWith("\r\033[?7l"));
    EXPECT_EQ(count(shown, "\033[?7l"), count(shown, "\033[?7h"));
    // The line is wiped out, then comes what went wrong.
    EXPECT_THAT(shown, HasSubstr("\r\033[?7l\033[K\033[?7h"));
    EXPECT_TRUE(shown.ends_with("\r\n") && !shown.ends_with("\033[?7h\r\n")) << shown;
}

TEST(Examples, SpaceSaversAreATableByGroups) {
    const test::TemporaryFolder home;
    EXPECT_THAT(run("space-savers", {home.path()}).standardOutput, HasSubstr("Nothing to clear."));
    (void)home.makeFile(".npm/_cacache/content", 2'000'000);
    fs::resize_file(home.makeFile("Movies/film.mov"), 1'500'000'000);
    const CommandResult result = run("space-savers", {home.path()});
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    const std::string& table = result.standardOutput;
    EXPECT_THAT(table, StartsWith("    FREES    ITEMS  CARE            WHAT"));
    EXPECT_THAT(table, HasSubstr("\nDeveloper\n     2 MB        1  Safe to remove  npm Cache"));
    EXPECT_THAT(table, HasSubstr("\nFiles\n  0 bytes        1  Review first    "));
    EXPECT_EQ(count(table, "Developer\n"), 1u);
    EXPECT_LT(table.find("\nDeveloper\n"), table.find("\nFiles\n"));
}

/// Whether an XML parser takes it, and every element that has a place lies within the picture. How many have
/// one.
int expectWellFormed(const std::string& picture) {
    const test::TemporaryFolder folder;
    const std::string file = folder.writeFile("picture.svg", picture);
    if (const auto result = Shell::run("/usr/bin/xmllint", {"--noout", "--nonet", file}, 60)) {
        EXPECT_EQ(result->exitCode, 0) << result->standardError;
    }
    int places = 0;
    for (std::size_t at = picture.find(" x=\""); at != picture.npos; at = picture.find(" x=\"", at + 1)) {
        double x = 0;
        double y = 0;
        double width = 0;
        double height = 0;
        if (std::sscanf(picture.substr(at, 100).c_str(), " x=\"%lf\" y=\"%lf\" width=\"%lf\" height=\"%lf\"",
                        &x, &y, &width, &height) != 4)
            continue;
        ++places;
        EXPECT_TRUE(x >= 0 && y >= 0 && width > 0 && height > 0 && x + width <= 1'200 && y + height <= 800)
            << x << " " << y << " " << width << " " << height;
    }
    return places;
}

TEST(Examples, TreemapShowsSizesCategoriesAndFolders) {
    const test::TemporaryFolder folder;
    (void)folder.makeFile("media/picture.png", 400'000);
    (void)folder.makeFile("media/deep/song.mp3", 300'000);
    (void)folder.makeFile("code/main.cpp", 200'000);
    fs::create_hard_link(folder / "code/main.cpp", folder / "media/link.cpp");
    for (int number = 0; number < 50; ++number)
        (void)folder.makeFile("code/tiny" + std::to_string(number), 1);
    const std::string path = folder.path();

    const CommandResult result = run("treemap-svg", {path, "2", "apparent"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError;
    const std::string& picture = result.standardOutput;
    EXPECT_EQ(run("treemap-svg", {path, "2", "apparent"}).standardOutput, picture);
    EXPECT_THAT(picture, StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\" "));
    EXPECT_THAT(picture, HasSubstr(">" + path + "</text>"));
    EXPECT_THAT(picture, HasSubstr(">900 KB apparent, 54 files, 3 folders</text>"));
    EXPECT_THAT(picture, HasSubstr("<title>" + path +
                                   "/media/picture.png\n400 KB (400000 bytes), 44.4%\nImages</title>"));
    EXPECT_THAT(picture,
                HasSubstr("/media/deep\n300 KB (300000 bytes), 33.3%\n1 file, mostly Audio</title>"));
    EXPECT_THAT(picture, HasSubstr(".c4{fill:#34D399}"));
    EXPECT_THAT(picture,
                HasSubstr("<title>50 smaller items in " + path + "/code\n50 bytes (50 bytes), &lt;0.1%"));
    EXPECT_EQ(count(picture, "class=\"open"), 2u);
    // One of the two links, and the file in the deeper folder not at all.
    EXPECT_EQ(count(picture, "main.cpp</text>") + count(picture, "link.cpp</text>"), 1u);
    EXPECT_THAT(picture, Not(HasSubstr("song.mp3")));
    // The legend, largest first, and only what occurs.
    EXPECT_LT(picture.find(">Images<"), picture.find(">Audio<"));
    EXPECT_LT(picture.find(">Audio<"), picture.find(">Code<tspan class=\"faint\" dx=\"6\">200 KB<"));
    EXPECT_THAT(picture, Not(HasSubstr(">Video<")));

    EXPECT_EQ(count(run("treemap-svg", {path, "1"}).standardOutput, "class=\"open"), 0u);
    EXPECT_EQ(count(run("treemap-svg", {path, "9"}).standardOutput, "song.mp3</text>"), 1u);
    EXPECT_THAT(run("treemap-svg", {path}).standardOutput, HasSubstr(" allocated, 54 files"));
}

TEST(Examples, TreemapOfHostileNames) {
    const test::TemporaryFolder parent;
    const fs::path root = parent.makeFolder("<svg> & \"root\" 'x' ]]>\x1B[31m");
    const std::string_view names[] = {
        "<script>alert(1)<",
        "&amp;&#0;&bogus;",
        "\"quoted\" 'single'",
        "]]><![CDATA[",
        "<!-- --",
        "control\x01\x08\x1B[2J\x7F",
        "line\nfeed\r\ttab",
        "\xC2\x85 next line",
        "turned \xE2\x80\xAEtxt.exe",
        "ill-formed \xFF\xFE \xC0\xAF \xED\xA0\x80 \xF0\x9F",
        "no characters \xEF\xBF\xBF \xEF\xBF\xBE",
        "\xE6\xBC\xA2\xE5\xAD\x97 \xF0\x9F\x8D\x89 e\xCC\x81",
        " ",
    };
    for (const std::string_view name : names) {
        const fs::path folder = root / name;
        std::error_code error;
        fs::create_directories(folder, error);
        if (error)
            continue; // some file systems take only names that are UTF-8
        (void)parent.makeFile((folder / (std::string(200, 'W') + "é<")).native(), 20'000);
        (void)parent.makeFile((folder / name).native(), 10'000);
    }
    fs::path chain = root;
    for (int level = 0; level < 30; ++level)
        chain /= "<" + std::to_string(level) + "&";
    fs::create_directories(chain);
    (void)parent.makeFile((chain / "end").native(), 900'000);

    const std::pair<const char*, const char*> pictures[] = {{"1", "treemap"},  {"2", "treemap"},
                                                            {"99", "treemap"}, {"4", "icicle"},
                                                            {"4", "sunburst"}, {"1", "bars"}};
    for (const auto& [levels, layout] : pictures) {
        SCOPED_TRACE(layout);
        const CommandResult result = run("treemap-svg", {root, levels, "apparent", layout});
        ASSERT_EQ(result.exitCode, 0) << result.standardError;
        const std::string& picture = result.standardOutput;
        EXPECT_TRUE(std::ranges::none_of(
            picture, [](unsigned char byte) { return (byte < 0x20 && byte != '\n') || byte == 0x7F; }));
        EXPECT_THAT(picture, Not(HasSubstr("<script")));
        EXPECT_GT(expectWellFormed(picture) + static_cast<int>(count(picture, "<path ")), 10);
    }
}

TEST(Examples, TreemapOfNothing) {
    const test::TemporaryFolder folder;
    const CommandResult result = run("treemap-svg", {folder.path()});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.standardOutput, HasSubstr(">0 bytes allocated, 0 files, 0 folders<"));
    EXPECT_EQ(expectWellFormed(result.standardOutput), 1);
}

} // namespace
} // namespace tarnwell
