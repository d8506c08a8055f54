#include "TarnwellCore/Platform/LenientJSON.hpp"

#include "TarnwellCore/Platform/JSONNumber.hpp"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

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

std::vector<std::string_view> jsonElements(std::string_view array) {
    constexpr std::string_view blanks = " \t\r\n";
    std::vector<std::string_view> elements;
    std::size_t begin = 0; // of the element
    std::size_t depth = 0;
    bool isInString = false;
    const auto add = [&](std::size_t end) {
        std::string_view element = array.substr(begin, end - begin);
        element.remove_prefix(std::min(element.find_first_not_of(blanks), element.size()));
        element = element.substr(0, element.find_last_not_of(blanks) + 1);
        if (!element.empty())
            elements.push_back(element);
        begin = end + 1;
    };
    for (std::size_t place = 0; array.starts_with('[') && place < array.size(); ++place) {
        const char byte = array[place];
        if (isInString) {
            place += byte == '\\';
            isInString = byte != '"';
        } else if (byte == '"') {
            isInString = true;
        } else if (byte == '[' || byte == '{') {
            if (++depth == 1)
                begin = place + 1;
        } else if (byte == ']' || byte == '}') {
            if (--depth == 0)
                add(place);
        } else if (byte == ',' && depth == 1) {
            add(place);
        }
    }
    return elements;
}

bool isUTF8(std::string_view text) {
    rapidjson::MemoryStream stream(text.data(), text.size());
    struct Sink {
        void Put(char) {}
        void PutUnsafe(char) {}
    } sink;
    while (stream.Tell() < text.size())
        if (!rapidjson::UTF8<>::Validate(stream, sink))
            return false;
    return stream.Tell() == text.size();
}

} // namespace tarnwell
