#include "TarnwellTidyKit/Pictures/PictureText.hpp"

#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <array>
#include <charconv>
#include <cmath>

namespace tarnwell {

namespace {

/// In parts of the font size.
double widthOf(char32_t code) {
    if (code >= 0x1100)
        return code >= 0x2000 && code < 0x2E80 ? 0.8 : 1.0;
    if (code >= 0x300 && code < 0x370)
        return 0; // marks over and under a letter
    if (code >= 0x80)
        return 0.68;
    constexpr std::string_view narrow = " !',.:;I[]`fijlrt|()/-";
    constexpr std::string_view wide = "mwMW@%";
    const char letter = static_cast<char>(code);
    if (narrow.contains(letter))
        return 0.38;
    if (wide.contains(letter))
        return 0.95;
    return letter >= 'A' && letter <= 'Z' ? 0.71 : 0.6;
}

} // namespace

std::string pictureName(std::string_view name) {
    const std::string text = harmless(name);
    std::string result;
    for (std::string_view rest = text; !rest.empty();) {
        const char32_t code = takeCharacter(rest);
        appendCharacter(result, code == 0xFFFE || code == 0xFFFF ? U'\uFFFD' : code);
    }
    return result;
}

std::string picturePath(const FileNode& node) {
    constexpr std::size_t longest = 300; // a path may take megabytes
    return pictureName(fitted(node.path(), longest, Cut::start));
}

std::string escapedMarkup(std::string_view text) {
    std::string result;
    for (const char letter : text) {
        switch (letter) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += letter;
        }
    }
    return result;
}

double estimatedWidth(std::string_view text, double fontSize) {
    double width = 0;
    while (!text.empty())
        width += widthOf(takeCharacter(text));
    return width * fontSize;
}

std::string fittedText(std::string_view text, double width, double fontSize) {
    if (estimatedWidth(text, fontSize) <= width)
        return std::string(text);
    constexpr std::string_view ellipsis = "…";
    constexpr int leastLetters = 3;
    double free = width - estimatedWidth(ellipsis, fontSize);
    std::string result;
    for (int letters = 0; !text.empty(); ++letters) {
        const char32_t code = takeCharacter(text);
        free -= widthOf(code) * fontSize;
        if (free < 0)
            return letters < leastLetters ? std::string() : result + std::string(ellipsis);
        appendCharacter(result, code);
    }
    return result;
}

std::string coordinate(double value) {
    std::array<char, 32> digits{};
    const double rounded = std::round(value * 100) / 100;
    char* const end =
        std::to_chars(digits.data(), digits.data() + digits.size(), rounded + 0.0, std::chars_format::fixed)
            .ptr;
    return {digits.data(), end};
}

std::string countedText(std::int64_t count, std::string_view one) {
    return std::to_string(count) + " " + std::string(one) + (count == 1 ? "" : "s");
}

} // namespace tarnwell
