#include "TarnwellCore/Text/Utf8.hpp"

#include <cstdint>
#include <cstring>

namespace tarnwell {

namespace {

/// What stands at the start of some bytes: a well-formed sequence or the longest ill-formed part.
struct Sequence {
    std::size_t length;
    bool isWellFormed;
};

/// Table 3-7 of the Unicode Standard: the second byte's range depends on the first.
Sequence nextSequence(const unsigned char* bytes, std::size_t count) {
    const unsigned first = bytes[0];
    if (first < 0x80)
        return {1, true};
    std::size_t expected = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        expected = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        expected = 3;
        if (first == 0xE0)
            low = 0xA0;
        else if (first == 0xED)
            high = 0x9F;
    } else if (first >= 0xF0 && first <= 0xF4) {
        expected = 4;
        if (first == 0xF0)
            low = 0x90;
        else if (first == 0xF4)
            high = 0x8F;
    } else {
        return {1, false};
    }
    for (std::size_t index = 1; index < expected; ++index) {
        if (index == count || bytes[index] < low || bytes[index] > high)
            return {index, false};
        low = 0x80;
        high = 0xBF;
    }
    return {expected, true};
}

/// The length of the ASCII text at the start, looked at eight bytes at a time.
std::size_t asciiPrefix(const unsigned char* bytes, std::size_t count) {
    std::size_t length = 0;
    while (length + 8 <= count) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + length, 8);
        if ((word & 0x8080808080808080u) != 0)
            break;
        length += 8;
    }
    while (length < count && bytes[length] < 0x80)
        ++length;
    return length;
}

} // namespace

Utf8Part firstUTF8Part(std::string_view text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const Sequence sequence = nextSequence(bytes, text.size());
    if (!sequence.isWellFormed)
        return {0, sequence.length, false};
    if (sequence.length == 1)
        return {bytes[0], 1, true};
    char32_t code = bytes[0] & (0x7Fu >> sequence.length);
    for (std::size_t index = 1; index < sequence.length; ++index)
        code = code << 6 | (bytes[index] & 0x3Fu);
    return {code, sequence.length, true};
}

bool isValidUTF8(std::string_view text) {
    return wellFormedUTF8Prefix(text) == text.size();
}

std::size_t wellFormedUTF8Prefix(std::string_view text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t position = asciiPrefix(bytes, text.size());
    while (position < text.size()) {
        const Sequence sequence = nextSequence(bytes + position, text.size() - position);
        if (!sequence.isWellFormed)
            break;
        position += sequence.length;
    }
    return position;
}

std::string repairedUTF8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::string repaired;
    repaired.reserve(text.size());
    std::size_t position = 0;
    while (position < text.size()) {
        const Sequence sequence = nextSequence(bytes + position, text.size() - position);
        if (sequence.isWellFormed)
            repaired.append(text, position, sequence.length);
        else
            repaired.append("\xEF\xBF\xBD");
        position += sequence.length;
    }
    return repaired;
}

} // namespace tarnwell
