#include "TarnwellCore/Platform/LenientJSON.hpp"

#include "TarnwellCore/Platform/JSONNumber.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>

namespace tarnwell {

namespace {

constexpr std::size_t escapeLength = 6; // \uXXXX

/// The number in the `\uXXXX` that stands at this place; nothing where none stands.
std::optional<unsigned> codeUnitAt(std::string_view text, std::size_t place) {
    const std::string_view escape = text.substr(std::min(place, text.size()), escapeLength);
    unsigned unit = 0;
    if (escape.size() < escapeLength || !escape.starts_with("\\u"))
        return std::nullopt;
    const auto [end, error] = std::from_chars(escape.data() + 2, escape.data() + escapeLength, unit, 16);
    return error == std::errc() && end == escape.data() + escapeLength ? std::optional(unit) : std::nullopt;
}

bool isHighHalf(std::optional<unsigned> unit) {
    return unit && *unit >= 0xD800 && *unit <= 0xDBFF;
}
bool isLowHalf(std::optional<unsigned> unit) {
    return unit && *unit >= 0xDC00 && *unit <= 0xDFFF;
}

/// Mends the escape at this place of a string and gives the place behind it.
std::size_t passEscape(std::string& text, std::size_t place) {
    const std::optional<unsigned> unit = codeUnitAt(text, place);
    if (!unit)
        return place + 2;
    if (isHighHalf(unit) && isLowHalf(codeUnitAt(text, place + escapeLength)))
        return place + 2 * escapeLength;
    if (isHighHalf(unit) || isLowHalf(unit))
        text.replace(place, escapeLength, "\\ufffd");
    return place + escapeLength;
}

/// Mends the number at this place and gives the place behind it.
std::size_t passNumber(std::string& text, std::size_t place) {
    constexpr std::size_t longestPlain = 300;
    const std::size_t end = std::min(text.find_first_not_of("0123456789+-.eE", place), text.size());
    const std::string_view number(text.data() + place, end - place);
    const bool isPlain = number.size() <= longestPlain && number.find_first_of("eE") == number.npos;
    if (!isPlain && isJSONNumber(number)) {
        std::fill(text.begin() + static_cast<std::ptrdiff_t>(place),
                  text.begin() + static_cast<std::ptrdiff_t>(end), '1');
        text[place + 1] = '.'; // the shortest is 1e1
    }
    return end;
}

} // namespace

std::string parsableJSON(std::string_view text) {
    std::string result(text);
    bool isInString = false;
    for (std::size_t place = 0; place < result.size();) {
        const char byte = result[place];
        if (isInString && byte == '\\') {
            place = passEscape(result, place);
        } else if (!isInString && (byte == '-' || (byte >= '0' && byte <= '9'))) {
            place = passNumber(result, place);
        } else {
            isInString ^= byte == '"';
            ++place;
        }
    }
    return result;
}

} // namespace tarnwell
