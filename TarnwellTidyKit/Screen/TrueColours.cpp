#include "TarnwellTidyKit/Screen/TrueColours.hpp"

#include <algorithm>
#include <charconv>

namespace tarnwell {

namespace {

int distance(int a, int b) {
    int sum = 0;
    for (const int shift : {0, 8, 16}) {
        const int difference = (a >> shift & 0xFF) - (b >> shift & 0xFF);
        sum += difference * difference;
    }
    return sum;
}

} // namespace

int TrueColours::numberOf(int colour) {
    if (const auto found = numbers_.find(colour); found != numbers_.end())
        return found->second;
    constexpr std::size_t most = 256 - first;
    if (colours_.size() < most) {
        colours_.push_back(colour);
        return numbers_[colour] = first + static_cast<int>(colours_.size()) - 1;
    }
    const auto nearest =
        std::ranges::min_element(colours_, {}, [colour](int each) { return distance(colour, each); });
    return numbers_[colour] = first + static_cast<int>(nearest - colours_.begin());
}

std::string TrueColours::spelledOut(std::string_view frame) const {
    std::string text;
    text.reserve(frame.size() * 2);
    for (;;) {
        // "ESC [ 38 ; 5 ; 123 m", or 48 for the ground; some terminals have colons.
        const auto begin = frame.find("\x1B[");
        text += frame.substr(0, begin);
        if (begin == std::string_view::npos)
            return text;
        frame.remove_prefix(begin);
        const std::string_view head = frame.substr(0, 7);
        int number = 0;
        const bool isColour = head.size() == 7 && (head[2] == '3' || head[2] == '4') && head[3] == '8' &&
                              head[5] == '5' && head[4] == head[6] && (head[4] == ';' || head[4] == ':');
        const char* end = frame.data() + frame.size();
        const char* rest = isColour ? std::from_chars(frame.data() + 7, end, number).ptr : end;
        const auto place = static_cast<std::size_t>(number - first);
        if (!isColour || rest == end || *rest != 'm' || number < first || place >= colours_.size()) {
            text += frame.substr(0, 2);
            frame.remove_prefix(2);
            continue;
        }
        const int colour = colours_[place];
        text += frame.substr(0, 4);
        text += ";2";
        for (const int shift : {16, 8, 0})
            text += ";" + std::to_string(colour >> shift & 0xFF);
        text += 'm';
        frame.remove_prefix(static_cast<std::size_t>(rest + 1 - frame.data()));
    }
}

} // namespace tarnwell
