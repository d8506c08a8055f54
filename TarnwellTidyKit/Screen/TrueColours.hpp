#pragma once

// Any colour on a terminal whose description, by which ncurses speaks to it, counts 256: each colour that is
// used has a number, and where ncurses names the number, the terminal is told the colour itself (ISO 8613-6).

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnwell {

class TrueColours {
public:
    /// A number from 16 to 255 for 0xRRGGBB. When there is none left, that of the nearest colour that has
    /// one.
    int numberOf(int colour);
    /// What ncurses wrote, with the colours in place of their numbers.
    std::string spelledOut(std::string_view frame) const;

private:
    static constexpr int first = 16; // those below are the terminal's own
    std::vector<int> colours_;       // by number, from `first` on
    std::unordered_map<int, int> numbers_;
};

} // namespace tarnwell
