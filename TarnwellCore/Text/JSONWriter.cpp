#include "TarnwellCore/Text/JSONWriter.hpp"

#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"
#include "TarnwellCore/Text/WordScan.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace tarnwell {

namespace {

constexpr std::size_t blanksALevel = 2;

/// Makes the text `count` bytes longer; `fill` writes them at the pointer it is given. One check of the
/// capacity for a piece of text, where appending it bit by bit would take one for each bit.
template <class Fill>
void extend(std::string& text, std::size_t count, Fill fill) {
    const std::size_t length = text.size();
    const std::size_t newLength = length + count;
    // The length that the function gets may be larger than what was asked for: libstdc++ 12 hands over the
    // new capacity.
    text.resize_and_overwrite(newLength, [&](char* bytes, std::size_t) noexcept {
        fill(bytes + length);
        return newLength;
    });
}

char* put(char* place, char character) {
    *place = character;
    return place + 1;
}

char* put(char* place, std::string_view bytes) {
    return place + bytes.copy(place, bytes.size());
}

/// Whether the bytes stand in a JSON string as they are: ASCII without control characters, quotes and
/// backslashes. Most names do.
bool needsNoEscape(std::string_view bytes) {
    return !WordScan::any(bytes, [](std::uint64_t word) {
        return WordScan::anyBelow(word, 0x20) | WordScan::anyEqual(word, '"') |
               WordScan::anyEqual(word, '\\') | WordScan::anyAbove7F(word);
    });
}

/// What stands behind the backslash for a byte that may not stand in a JSON string: a letter, or "u" for
/// the long form; 0 for the others.
constexpr std::array<char, 256> escapes = [] {
    std::array<char, 256> table{};
    for (std::size_t control = 0; control < 0x20; ++control)
        table[control] = 'u';
    table['\b'] = 'b';
    table['\f'] = 'f';
    table['\n'] = 'n';
    table['\r'] = 'r';
    table['\t'] = 't';
    table['"'] = '"';
    table['\\'] = '\\';
    return table;
}();

char escapeOf(char character) {
    return escapes[static_cast<unsigned char>(character)];
}

} // namespace

template <class Fill>
void JSONWriter::write(std::size_t count, Fill fill) {
    if (followsKey_ || depth_ == 0) {
        followsKey_ = false;
        extend(text_, count, fill);
        return;
    }
    const std::size_t comma = isEmpty_ ? 0 : 1;
    const std::size_t blanks = depth_ * blanksALevel;
    isEmpty_ = false;
    extend(text_, comma + 1 + blanks + count, [&](char* place) {
        if (comma != 0)
            place = put(place, ',');
        place = put(place, '\n');
        std::memset(place, ' ', blanks);
        fill(place + blanks);
    });
}

void JSONWriter::write(std::string_view value) {
    write(value.size(), [&](char* place) { put(place, value); });
}

void JSONWriter::begin(char bracket) {
    write({&bracket, 1});
    ++depth_;
    isEmpty_ = true;
}

void JSONWriter::end(char bracket) {
    --depth_;
    if (!isEmpty_) {
        text_ += '\n';
        text_.append(depth_ * blanksALevel, ' ');
    }
    text_ += bracket;
    isEmpty_ = false;
}

void JSONWriter::beginObject() {
    begin('{');
}
void JSONWriter::endObject() {
    end('}');
}
void JSONWriter::beginArray() {
    begin('[');
}
void JSONWriter::endArray() {
    end(']');
}

void JSONWriter::key(std::string_view name) {
    if (!needsNoEscape(name)) {
        std::string escaped;
        appendEscaped(escaped, name);
        escapedKey(escaped);
        return;
    }
    escapedKey(name);
}

void JSONWriter::escapedKey(std::string_view escaped) {
    write(escaped.size() + 4, [&](char* place) { put(put(put(place, '"'), escaped), "\": "); });
    followsKey_ = true;
}

void JSONWriter::string(std::string_view bytes) {
    if (!needsNoEscape(bytes)) {
        std::string escaped;
        appendEscaped(escaped, bytes);
        escapedString(escaped);
        return;
    }
    escapedString(bytes);
}

void JSONWriter::escapedString(std::string_view escaped) {
    write(escaped.size() + 2, [&](char* place) { put(put(put(place, '"'), escaped), '"'); });
}

void JSONWriter::integer(std::int64_t value) {
    char digits[24];
    const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    write({digits, static_cast<std::size_t>(end - digits)});
}

void JSONWriter::number(double value) {
    if (!std::isfinite(value)) {
        write("null");
        return;
    }
    write({});
    appendDecimalText(text_, value);
}

void JSONWriter::boolean(bool value) {
    write(value ? "true" : "false");
}

void JSONWriter::null() {
    write("null");
}

// Once at most: what is repaired is valid.
void JSONWriter::appendEscaped(std::string& text, std::string_view bytes) { // NOLINT(misc-no-recursion)
    if (needsNoEscape(bytes)) [[likely]] {
        text += bytes;
        return;
    }
    if (!isValidUTF8(bytes)) {
        appendEscaped(text, repairedUTF8(bytes));
        return;
    }
    for (const char character : bytes) {
        const char escape = escapeOf(character);
        if (escape == 0) {
            text += character;
            continue;
        }
        text += '\\';
        text += escape;
        if (escape == 'u') {
            constexpr const char* hexadecimal = "0123456789ABCDEF";
            text += "00";
            text += hexadecimal[character >> 4];
            text += hexadecimal[character & 0xF];
        }
    }
}

// Once at most, again.
std::size_t JSONWriter::escapedLength(std::string_view bytes) { // NOLINT(misc-no-recursion)
    if (needsNoEscape(bytes)) [[likely]]
        return bytes.size();
    if (!isValidUTF8(bytes))
        return escapedLength(repairedUTF8(bytes));
    std::size_t length = bytes.size();
    for (const char character : bytes) {
        const char escape = escapeOf(character);
        length += escape == 0 ? 0 : escape == 'u' ? 5 : 1;
    }
    return length;
}

} // namespace tarnwell
