#include "TarnwellCore/Text/Trim.hpp"

#include <algorithm>
#include <array>

namespace tarnwell {

namespace {

using namespace std::string_view_literals;

/// The white space beyond ASCII, in UTF-8: next line, the blanks of Unicode, line and paragraph separators.
constexpr std::array wideSpaces{
    "\u0085"sv, "\u00A0"sv, "\u1680"sv, "\u2000"sv, "\u2001"sv, "\u2002"sv, "\u2003"sv,
    "\u2004"sv, "\u2005"sv, "\u2006"sv, "\u2007"sv, "\u2008"sv, "\u2009"sv, "\u200A"sv,
    "\u2028"sv, "\u2029"sv, "\u202F"sv, "\u205F"sv, "\u3000"sv,
};

constexpr bool isAsciiSpace(char byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

std::size_t leadingSpace(std::string_view text) {
    if (isAsciiSpace(text.front()))
        return 1;
    const auto* wide = std::ranges::find_if(wideSpaces, [&](auto space) { return text.starts_with(space); });
    return wide == wideSpaces.end() ? 0 : wide->size();
}

std::size_t trailingSpace(std::string_view text) {
    if (isAsciiSpace(text.back()))
        return 1;
    const auto* wide = std::ranges::find_if(wideSpaces, [&](auto space) { return text.ends_with(space); });
    return wide == wideSpaces.end() ? 0 : wide->size();
}

} // namespace

std::string_view trimmed(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = leadingSpace(text);
        if (length == 0)
            break;
        text.remove_prefix(length);
    }
    while (!text.empty()) {
        const std::size_t length = trailingSpace(text);
        if (length == 0)
            break;
        text.remove_suffix(length);
    }
    return text;
}

} // namespace tarnwell
