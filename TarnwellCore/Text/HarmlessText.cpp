#include "TarnwellCore/Text/HarmlessText.hpp"

#include "TarnwellCore/Text/Utf8.hpp"
#include "TarnwellCore/Text/WordScan.hpp"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace tarnwell {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// Shown as an escape wherever they stand. Ascending.
constexpr Range escapedRanges[] = {
    {0x0, 0x1F},      {0x7F, 0x9F},       {0xAD, 0xAD},       {0x61C, 0x61C},     {0x180E, 0x180E},
    {0x200B, 0x200B}, {0x200E, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},   {0xFEFF, 0xFEFF},
    {0xFFF9, 0xFFFB}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

bool isAlwaysEscaped(char32_t code) {
    if (code < 0x7F)
        return code < 0x20;
    const auto* range = std::ranges::lower_bound(escapedRanges, code, {}, &Range::last);
    return range != std::end(escapedRanges) && code >= range->first;
}

constexpr bool isJoiner(char32_t code) {
    return code == 0x200C || code == 0x200D;
}

constexpr bool isVariationSelector(char32_t code) {
    return code >= 0xFE00 && code <= 0xFE0F;
}

/// Whether a joiner beside the character can do what it is for.
bool isJoined(char32_t code) {
    return code >= 0x300 && !isJoiner(code) && !isAlwaysEscaped(code);
}

constexpr bool takesVariation(char32_t code) {
    return (code >= 0xA9 && !isJoiner(code) && !isVariationSelector(code)) || code == '#' || code == '*' ||
           (code >= '0' && code <= '9');
}

/// The code of the character at the beginning; 0 for the end and for bytes that are none.
char32_t firstCode(std::string_view text) {
    return text.empty() ? 0 : firstUTF8Part(text).code;
}

/// `previous` is the character before, 0 when there is none that is shown.
bool isEscaped(char32_t previous, char32_t code, std::string_view rest) {
    if (isJoiner(code)) {
        const char32_t next = firstCode(rest);
        return !isJoined(previous) || !isJoined(next) || isVariationSelector(next);
    }
    if (isVariationSelector(code))
        return !takesVariation(previous);
    return isAlwaysEscaped(code);
}

/// Appends the bytes, but for what has to be escaped, which `escape` appends: it gets the part and its bytes.
template <class Escape>
void appendEscaping(std::string& text, std::string_view bytes, Escape escape) {
    char32_t previous = 0;
    std::size_t shown = 0; // up to here everything is in `text`
    for (std::size_t position = 0; position < bytes.size();) {
        const std::string_view rest = bytes.substr(position);
        const Utf8Part part = firstUTF8Part(rest);
        if (part.isWellFormed && !isEscaped(previous, part.code, rest.substr(part.length))) {
            previous = part.code;
        } else {
            text += bytes.substr(shown, position - shown);
            escape(part, rest.substr(0, part.length));
            previous = 0;
            shown = position + part.length;
        }
        position += part.length;
    }
    text += bytes.substr(shown);
}

void appendHexadecimal(std::string& text, char32_t number, std::size_t leastDigits) {
    char digits[8];
    char* const end =
        std::to_chars(digits, digits + sizeof digits, static_cast<std::uint32_t>(number), 16).ptr;
    std::ranges::transform(digits, end, digits, [](char digit) {
        return digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
    });
    const auto count = static_cast<std::size_t>(end - digits);
    text.append(leastDigits - std::min(leastDigits, count), '0').append(digits, count);
}

void appendByteEscape(std::string& text, unsigned char byte) {
    text += "\\x";
    appendHexadecimal(text, byte, 2);
}

void appendEscape(std::string& text, char32_t code) {
    switch (code) {
    case '\n':
        text += "\\n";
        return;
    case '\t':
        text += "\\t";
        return;
    case '\r':
        text += "\\r";
        return;
    default:
        break;
    }
    if (code < 0x80)
        return appendByteEscape(text, static_cast<unsigned char>(code));
    text += "\\u{";
    appendHexadecimal(text, code, 2);
    text += '}';
}

bool isPlainName(std::string_view bytes) {
    return !WordScan::any(bytes, [](std::uint64_t word) {
        return WordScan::anyBelow(word, 0x20) | WordScan::anyEqual(word, 0x7F) | WordScan::anyAbove7F(word);
    });
}

} // namespace

bool isHarmless(std::string_view bytes) {
    if (isPlainName(bytes))
        return true;
    char32_t previous = 0;
    while (!bytes.empty()) {
        const Utf8Part part = firstUTF8Part(bytes);
        bytes.remove_prefix(part.length);
        if (!part.isWellFormed || isEscaped(previous, part.code, bytes))
            return false;
        previous = part.code;
    }
    return true;
}

void appendHarmless(std::string& text, std::string_view bytes) {
    if (isPlainName(bytes)) [[likely]] {
        text += bytes;
        return;
    }
    appendEscaping(text, bytes, [&](const Utf8Part& part, std::string_view ill) {
        if (part.isWellFormed)
            return appendEscape(text, part.code);
        for (const char byte : ill)
            appendByteEscape(text, static_cast<unsigned char>(byte));
    });
}

std::string harmless(std::string_view bytes) {
    std::string text;
    appendHarmless(text, bytes);
    return text;
}

void appendStyled(std::string& text, std::string_view bytes, NameStyle style) {
    if (style == NameStyle::harmless)
        appendHarmless(text, bytes);
    else
        text += bytes;
}

std::string styled(std::string_view bytes, NameStyle style) {
    return style == NameStyle::harmless ? harmless(bytes) : std::string(bytes);
}

std::string harmlessJSON(std::string_view document) {
    std::string text;
    text.reserve(document.size());
    const auto appendUnit = [&](char32_t unit) {
        text += "\\u";
        appendHexadecimal(text, unit, 4);
    };
    appendEscaping(text, document, [&](const Utf8Part& part, std::string_view bytes) {
        if (!part.isWellFormed || part.code == '\n') {
            text += bytes;
        } else if (part.code <= 0xFFFF) {
            appendUnit(part.code);
        } else {
            appendUnit(0xD7C0 + (part.code >> 10));
            appendUnit(0xDC00 + (part.code & 0x3FF));
        }
    });
    return text;
}

} // namespace tarnwell
