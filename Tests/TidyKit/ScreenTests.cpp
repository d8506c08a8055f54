#include "TarnwellTidyKit/Screen/InputDecoder.hpp"
#include "TarnwellTidyKit/Screen/MemoryScreen.hpp"
#include "TarnwellTidyKit/Screen/Palette.hpp"
#include "TarnwellTidyKit/Screen/TerminalRequests.hpp"
#include "TarnwellTidyKit/Screen/TrueColours.hpp"

#include <gtest/gtest.h>

#include <random>
#include <thread>

using namespace tarnwell;
using namespace std::chrono_literals;

namespace {

/// What every grid promises, whatever was painted.
void expectSound(const Grid& grid) {
    for (int row = 0; row < grid.size().height; ++row)
        for (int column = 0; column < grid.size().width; ++column) {
            const Cell& cell = grid.at(column, row);
            if (cell.columns() == 2) {
                ASSERT_EQ(grid.at(column + 1, row).columns(), 0);
                ASSERT_EQ(grid.at(column + 1, row).style, cell.style);
                ASSERT_LT(column + 1, grid.size().width);
            }
            if (cell.columns() == 0) {
                ASSERT_GT(column, 0);
                ASSERT_EQ(grid.at(column - 1, row).columns(), 2);
                ASSERT_EQ(cell.text(), "");
            } else {
                ASSERT_EQ(displayWidth(cell.text()), static_cast<std::size_t>(cell.columns())) << cell.text();
            }
        }
}

std::string row(const Grid& grid, int number) {
    std::string text = grid.text();
    for (; number > 0; --number)
        text.erase(0, text.find('\n') + 1);
    return text.substr(0, text.find('\n'));
}

std::string described(const TerminalInput& input) {
    if (const auto* key = std::get_if<KeyPress>(&input))
        return std::string(key->control ? "C-" : "") + (key->alt ? "A-" : "") + (key->shift ? "S-" : "") +
               (key->key == Key::character ? key->text : "#" + std::to_string(static_cast<int>(key->key)));
    if (const auto* mouse = std::get_if<MouseEvent>(&input))
        return "mouse" + std::to_string(static_cast<int>(mouse->kind)) +
               std::to_string(static_cast<int>(mouse->button)) + " " + std::to_string(mouse->column) + "," +
               std::to_string(mouse->row) + (mouse->control ? " C" : "");
    if (const auto* pasted = std::get_if<Pasted>(&input))
        return "paste(" + pasted->text + ")";
    const auto& answer = std::get<TerminalAnswer>(input);
    return "answer" + std::to_string(static_cast<int>(answer.kind)) + " " + std::to_string(answer.red) + "," +
           std::to_string(answer.green) + "," + std::to_string(answer.blue);
}

std::string decoded(std::string_view bytes, std::size_t piece) {
    InputDecoder decoder({{"\x1BOx", KeyPress{.key = Key::f5}}});
    for (std::size_t at = 0; at < bytes.size(); at += piece)
        decoder.feed(bytes.substr(at, piece));
    decoder.settle();
    EXPECT_FALSE(decoder.isHolding());
    std::string all;
    while (const auto input = decoder.next())
        all += (all.empty() ? "" : " ") + described(*input);
    return all;
}

} // namespace

TEST(Grid, TextsKeepToTheirColumns) {
    struct Case {
        std::string_view text;
        int column;
        int width; // of the grid
        std::string_view shown;
        int used;
    };
    const std::vector<Case> cases = {
        {"plain", 1, 10, " plain", 5},
        {"cut off", 0, 3, "cut", 7},
        {"left of it", -5, 8, "of it", 10},
        {"日本語", 0, 10, "日本語", 6},
        {"日本語", 0, 5, "日本", 6},
        {"日本", -1, 5, " 本", 4},
        {"e\u0301a", 0, 2, "e\u0301a", 2},
        {"\u0301x", 0, 4, " \u0301x", 2},
        {"a\x1B[31m\nb", 0, 20, "a\\x1B[31m\\nb", 12},
        {"\xFF\xC3", 0, 20, "\\xFF\\xC3", 8},
        {"\u202Eevil", 0, 20, "\\u{202E}evil", 12},
        {"👩\u200D👧❤\uFE0F.", 0, 10, "👩👧❤.", 6},
        {"a"
         "\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301"
         "b",
         2, 5,
         "  a\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301"
         "b",
         2},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.text);
        Grid grid({one.width, 1});
        EXPECT_EQ(grid.put(one.column, 0, one.text), one.used);
        EXPECT_EQ(row(grid, 0), one.shown);
        expectSound(grid);
    }
    Grid grid({20, 3});
    grid.putPadded(0, 0, 8, "1.5 GB", {}, Side::right);
    grid.putFitted(9, 0, 6, "long name", {}, Cut::middle);
    grid.bar(0, 1, 4, 0.5, {Role::bar}, {Role::text, Role::barTrack});
    grid.bar(5, 1, 4, 0.3, {Role::bar}, {});
    grid.bar(10, 1, 4, 1e-9, {Role::bar}, {}, false);
    grid.halves(0, 2, accentRole(3), accentRole(23));
    grid.halves(1, 2, Role::ground, Role::bar);
    grid.halves(2, 2, Role::bar, Role::ground);
    EXPECT_EQ(grid.text(), "  1.5 GB lon…me\n██   █▎   █\n ▄▀\n");
    EXPECT_EQ(grid.at(0, 2).style.fill, accentRole(3));
}

TEST(Grid, StaysSoundWhateverIsPainted) {
    std::mt19937 random(20240917); // NOLINT: the same each time
    const std::vector<std::string_view> texts = {"日本",       "a",        "",      "e\u0301",
                                                 "👩\u200D👧", "\xF0\x9F", "語x語", "\t"};
    const auto number = [&](int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); };
    for (int round = 0; round < 200; ++round) {
        Grid grid({number(12), number(4)});
        for (int step = 0; step < 60; ++step) {
            const int column = number(18) - 4;
            const int line = number(6) - 1;
            const Style style =
                Style{accentRole(static_cast<std::size_t>(number(20)))}.selected(number(2) == 0);
            switch (number(6)) {
            case 0:
                grid.fill({column, line, number(8) - 1, number(3)}, style);
                break;
            case 1:
                grid.bar(column, line, number(9) - 1, number(12) / 10.0, style, style.on(Role::barTrack));
                break;
            case 2:
                grid.restyle({column, line, number(8), number(3)}, [](Style old) { return old.selected(); });
                break;
            case 3:
                grid.putFitted(column, line, number(7) - 1, texts[static_cast<std::size_t>(number(8))],
                               style);
                break;
            case 4:
                grid.halves(column, line, style.role, Role::ground);
                break;
            default:
                grid.put(column, line, texts[static_cast<std::size_t>(number(8))], style);
            }
        }
        expectSound(grid);
    }
}

TEST(InputDecoder, TellsKeysMouseAndAnswersApartInPiecesOfAnySize) {
    const std::vector<std::pair<std::string_view, std::string_view>> cases = {
        {"aZ ß日", "a Z   ß 日"},
        {"\r\n\t\x7F\b\x01\x1A", "#5 #5 #6 #7 #7 C-a C-z"},
        {std::string_view("\0", 1), "C- "},
        {"\x1B[A\x1BOB\x1B[C\x1BOD\x1B[H\x1B[F", "#1 #2 #4 #3 #11 #12"},
        {"\x1B[1;5A\x1B[1;2B\x1B[5~\x1B[6;3~\x1B[3~\x1B[Z", "C-#1 S-#2 #9 A-#10 #14 S-#6"},
        {"\x1BOP\x1B[15~\x1B[24~\x1B[[A\x1B[1;5Q\x1BO5A", "#15 #19 #26 #15 C-#16 C-#1"},
        {"\x1BOx", "#19"},
        {"\x1B"
         "a\x1Bß\x1B",
         "A-a A-ß #8"},
        {"\x1B\x1B[A", "#8 #1"},
        {"\x1B[", "A-["},
        {"\x1B[<0;5;7M\x1B[<0;5;7m\x1B[<32;6;7M\x1B[<64;1;1M\x1B[<65;1;1M\x1B[<16;1;1M\x1B[<35;9;9M",
         "mouse01 4,6 mouse21 4,6 mouse11 5,6 mouse30 0,0 mouse40 0,0 mouse01 0,0 C"},
        {"\x1B[M !!", "mouse01 0,0"},
        {"\x1B[<0;0;0M\x1B[<999999999999;1;1M", ""},
        {"\x1B[200~a\r\nb\rc\x1B[A\x1B[201~q", "paste(a\nb\nc\x1B[A) q"},
        {"\x1B]11;rgb:ffff/8080/0000\x1B\\x", "answer2 255,128,0 x"},
        {"\x1B]11;rgb:ff/80/00\ax", "answer2 255,128,0 x"},
        {"\x1B]11;nonsense\a\x1B]52;c;eA==\x1B\\\x1BP1$r0m\x1B\\x", "x"},
        {"\x1B[?62;22cx\x1B[0ny", "answer0 0,0,0 x answer1 0,0,0 y"},
        {"\x1B[97;5u\x1B[27u\x1B[I\x1B[O\x1B[12;40R", "C-a #8"},
        {"\xFF\xC3"
         "a\xE6\x97",
         "a"},
        {"\xC2\x9B"
         "A",
         "A"},
    };
    for (const auto& [bytes, events] : cases)
        for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{1000}})
            EXPECT_EQ(decoded(bytes, piece), events) << piece;
}

TEST(InputDecoder, AnyBytesAreTakenAndTheFollowingKeysArrive) {
    std::mt19937 random(7); // NOLINT: the same each time
    for (int round = 0; round < 3000; ++round) {
        InputDecoder decoder;
        std::string bytes;
        constexpr std::string_view likely = "\x1B\x1B[O]<;MmPAu~n0123459?c\\\a\xC3\xA4";
        for (auto count = random() % 40; count > 0; --count)
            bytes += random() % 4 == 0 ? static_cast<char>(random()) : likely[random() % likely.size()];
        decoder.feed(bytes);
        decoder.settle();
        decoder.feed("\x1B[201~\x1B\\"); // ends what may have begun
        decoder.settle();
        decoder.feed("k");
        std::string last;
        while (const auto input = decoder.next())
            last = described(*input);
        ASSERT_EQ(last, "k") << testing::PrintToString(bytes);
    }
    InputDecoder decoder;
    decoder.feed("\x1B[200~" + std::string(3 << 20, 'x'));
    decoder.feed("\x1B[201~");
    EXPECT_EQ(std::get<Pasted>(*decoder.next()).text.size(), InputDecoder::longestPaste);
}

TEST(Palette, WhatIsChosenMarkedOrFilledCanBeSeenOnEveryTerminal) {
    for (const int colours : {0, 8, 16, 256, 1 << 24})
        for (const bool isDark : {true, false})
            for (std::size_t number = 0; number < roleCount; ++number) {
                SCOPED_TRACE(roleName(static_cast<Role>(number)) + " " + std::to_string(colours));
                const Palette palette(colours, isDark);
                const Style plain{static_cast<Role>(number)};
                EXPECT_NE(palette.paint(plain), palette.paint(plain.selected()));
                if (plain.role == Role::text || (colours == 0 && plain.role != Role::match)) {
                    EXPECT_NE(palette.paint(plain.marked()), palette.paint(plain));
                }
                for (const Style& style : {plain, plain.selected(), Style{Role::text, plain.role}}) {
                    const Paint paint = palette.paint(style);
                    EXPECT_LT(paint.foreground, std::max(colours, 1));
                    EXPECT_LT(paint.background, std::max(colours, 1));
                    if (paint.foreground != Paint::none) {
                        EXPECT_NE(paint.foreground, paint.background);
                    }
                }
            }
}

TEST(TrueColours, StandInPlaceOfTheirNumbersAndOfNothingElse) {
    TrueColours colours;
    EXPECT_EQ(colours.numberOf(0x102030), 16);
    EXPECT_EQ(colours.numberOf(0xFF00FF), 17);
    EXPECT_EQ(colours.numberOf(0x102030), 16);
    const struct {
        std::string_view frame, spelledOut;
    } cases[] = {
        {"a\x1B[38;5;16mb\x1B[48;5;17mc\x1B[0m", "a\x1B[38;2;16;32;48mb\x1B[48;2;255;0;255mc\x1B[0m"},
        {"\x1B[38:5:17m", "\x1B[38;2;255;0;255m"},
        {"\x1B[38;5;15m\x1B[38;5;18m\x1B[38;5m", "\x1B[38;5;15m\x1B[38;5;18m\x1B[38;5m"},
        {"\x1B[38;5;16H\x1B[58;5;16m\x1B[38;5:16m", "\x1B[38;5;16H\x1B[58;5;16m\x1B[38;5:16m"},
        {"38;5;16m \x1B[38;5;1", "38;5;16m \x1B[38;5;1"},
    };
    for (const auto& [frame, spelledOut] : cases)
        EXPECT_EQ(colours.spelledOut(frame), spelledOut);
    for (int colour = 0; colour < 238; ++colour)
        EXPECT_EQ(colours.numberOf(colour << 8 | 0x01), 18 + colour);
    EXPECT_EQ(colours.numberOf(0xFE00FE), 17) << "the nearest when there is no number left";
}

TEST(MemoryScreen, PlaysAScriptAndKeepsWhatIsShown) {
    MemoryScreen screen({10, 2});
    screen.type("a<C-l><S-Tab><Space><lt>ß<PageDown>");
    screen.give(Resized{4, 1});
    EXPECT_EQ(std::get<KeyPress>(screen.next()), KeyPress::of("a"));
    EXPECT_EQ(std::get<KeyPress>(screen.next()), (KeyPress{.text = "l", .control = true}));
    EXPECT_EQ(std::get<KeyPress>(screen.next()), (KeyPress{.key = Key::tab, .shift = true}));
    for (const std::string_view text : {" ", "<", "ß"})
        EXPECT_EQ(std::get<KeyPress>(screen.next()).text, text);
    EXPECT_EQ(std::get<KeyPress>(screen.next()).key, Key::pageDown);
    EXPECT_EQ(screen.size(), (GridSize{10, 2}));
    EXPECT_TRUE(std::holds_alternative<Resized>(screen.next()));
    EXPECT_EQ(screen.size(), (GridSize{4, 1}));
    EXPECT_THROW(screen.type("<Nonsense>"), std::invalid_argument);

    Grid grid({6, 1});
    grid.put(0, 0, "ab", Style{Role::link}.selected());
    screen.isBusy = true;
    EXPECT_FALSE(screen.show(grid));
    screen.isBusy = false;
    EXPECT_TRUE(std::holds_alternative<Drawable>(screen.next()));
    EXPECT_TRUE(screen.show(grid));
    EXPECT_EQ(screen.dump(), "------\nab\n------\n0: 0-1 link selected\n");
    std::thread([&screen] { screen.wake(); }).join();
    EXPECT_TRUE(std::holds_alternative<Woken>(screen.next(1s)));
    EXPECT_TRUE(std::holds_alternative<Tick>(screen.next(0ms)));
    EXPECT_TRUE(std::holds_alternative<ScreenLost>(screen.next()));
    EXPECT_EQ(TerminalRequests::copy("any carnal pleas"), "\x1B]52;c;YW55IGNhcm5hbCBwbGVhcw==\x1B\\");
}
