#include "Text.hpp"

#include "TarnwellCore/Text/Utf8.hpp"

#include <cstddef>

namespace example {

namespace {

struct Character {
    char32_t code;
    std::string_view bytes;
};

/// Takes the first character off text that is well-formed and not empty.
Character takeCharacter(std::string_view& text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const std::size_t length = byte(0) < 0x80 ? 1 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    char32_t code = length == 1 ? byte(0) : byte(0) & (0x7Fu >> length);
    for (std::size_t index = 1; index < length; ++index)
        code = code << 6 | (byte(index) & 0x3Fu);
    const Character character{code, text.substr(0, length)};
    text.remove_prefix(length);
    return character;
}

bool isControl(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x202A && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

/// In parts of the font size.
double characterWidth(char32_t code) {
    if (code >= 0x1100)
        return code >= 0x2000 && code < 0x2E80 ? 0.8 : 1.0;
    if (code >= 0x300 && code < 0x370)
        return 0; // combining marks
    if (code >= 0x80)
        return 0.68;
    constexpr std::string_view narrow = " !',.:;I[]`fijlrt|()/-";
    constexpr std::string_view wide = "mwMW@%";
    const char letter = static_cast<char>(code);
    if (narrow.find(letter) != std::string_view::npos)
        return 0.38;
    if (wide.find(letter) != std::string_view::npos)
        return 0.95;
    return letter >= 'A' && letter <= 'Z' ? 0.71 : 0.6;
}

} // namespace

std::string printable(std::string_view name) {
    const std::string repaired = tarnwell::repairedUTF8(name);
    std::string text;
    for (std::string_view rest = repaired; !rest.empty();) {
        const Character character = takeCharacter(rest);
        if (character.code == 0xFFFE || character.code == 0xFFFF)
            text += "\uFFFD"; // well-formed, but not in XML
        else if (!isControl(character.code))
            text += character.bytes;
    }
    return text;
}

std::string escaped(std::string_view printable) {
    std::string text;
    for (const char letter : printable) {
        if (letter == '&')
            text += "&amp;";
        else if (letter == '<')
            text += "&lt;";
        else if (letter == '>')
            text += "&gt;";
        else if (letter == '"')
            text += "&quot;";
        else
            text += letter;
    }
    return text;
}

double textWidth(std::string_view printable, double fontSize) {
    double width = 0;
    while (!printable.empty())
        width += characterWidth(takeCharacter(printable).code);
    return width * fontSize;
}

std::string fitted(std::string_view printable, double width, double fontSize) {
    if (textWidth(printable, fontSize) <= width)
        return std::string(printable);
    constexpr std::string_view ellipsis = "…";
    constexpr int leastLetters = 3;
    double free = width - textWidth(ellipsis, fontSize);
    std::string text;
    int letters = 0;
    while (!printable.empty()) {
        const Character character = takeCharacter(printable);
        free -= characterWidth(character.code) * fontSize;
        if (free < 0)
            break;
        text += character.bytes;
        ++letters;
    }
    return letters < leastLetters ? std::string() : text + std::string(ellipsis);
}

} // namespace example
