#include "TarnwellCore/Platform/UUID.hpp"

#include <uuid/uuid.h>

#include <cstddef>

namespace tarnwell {

namespace {

constexpr std::size_t textLength = 36;

/// Whether a hyphen stands at this place of the text.
constexpr bool isHyphenPlace(std::size_t place) {
    return place == 8 || place == 13 || place == 18 || place == 23;
}

/// The value of a hexadecimal digit; -1 for anything else.
constexpr int digitValue(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

} // namespace

std::string UUID::text() const {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(textLength);
    for (const std::uint8_t byte : bytes) {
        if (isHyphenPlace(text.size()))
            text += '-';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != textLength)
        return std::nullopt;
    UUID value;
    std::size_t digitCount = 0;
    for (std::size_t place = 0; place < textLength; ++place) {
        if (isHyphenPlace(place)) {
            if (text[place] != '-')
                return std::nullopt;
            continue;
        }
        const int digit = digitValue(text[place]);
        if (digit < 0)
            return std::nullopt;
        std::uint8_t& byte = value.bytes[digitCount / 2];
        byte = static_cast<std::uint8_t>(byte << 4 | digit);
        ++digitCount;
    }
    return value;
}

UUID UUID::random() {
    UUID value;
    ::uuid_generate_random(value.bytes.data());
    return value;
}

} // namespace tarnwell
