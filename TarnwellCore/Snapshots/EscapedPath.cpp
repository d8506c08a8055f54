#include "TarnwellCore/Snapshots/EscapedPath.hpp"

#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>
#include <cstddef>

namespace tarnwell {

namespace {

constexpr std::string_view digits = "0123456789ABCDEF";
constexpr std::string_view mark = "\\x";
constexpr std::size_t escapeLength = 4;

bool startsWithEscape(std::string_view text) {
    return text.size() >= escapeLength && text.starts_with(mark) && digits.find(text[2]) != digits.npos &&
           digits.find(text[3]) != digits.npos;
}

void appendEscape(std::string& text, char byte) {
    const auto value = static_cast<unsigned char>(byte);
    text.append(mark).append({digits[value >> 4], digits[value & 15]});
}

} // namespace

std::string escapedPath(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t place = 0; place < bytes.size();) {
        // Up to the next backslash, or byte that is no text.
        const std::string_view rest = bytes.substr(place);
        const std::size_t plain = std::min(wellFormedUTF8Prefix(rest), rest.find('\\'));
        text += rest.substr(0, plain);
        place += plain;
        if (place == bytes.size())
            break;
        if (bytes[place] != '\\' || startsWithEscape(bytes.substr(place)))
            appendEscape(text, bytes[place]);
        else
            text += bytes[place];
        ++place;
    }
    return text;
}

std::string unescapedPath(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t place = 0; place < text.size();) {
        const std::size_t plain = std::min(text.find('\\', place), text.size()) - place;
        bytes += text.substr(place, plain);
        place += plain;
        if (place == text.size())
            break;
        if (startsWithEscape(text.substr(place))) {
            bytes += static_cast<char>(digits.find(text[place + 2]) << 4 | digits.find(text[place + 3]));
            place += escapeLength;
        } else {
            bytes += text[place++];
        }
    }
    return bytes;
}

} // namespace tarnwell
