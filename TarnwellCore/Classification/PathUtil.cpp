#include "TarnwellCore/Classification/PathUtil.hpp"

#include "TarnwellCore/Platform/LetterCase.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>

namespace tarnwell::PathUtil {

namespace {

constexpr bool isASCII(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

/// Whether lower case may be another byte.
constexpr bool mayChange(char byte) {
    return (byte >= 'A' && byte <= 'Z') || !isASCII(byte);
}

constexpr char lowerCaseByte(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

} // namespace

std::string lowerCase(std::string_view text) {
    if (!std::ranges::all_of(text, isASCII) && isValidUTF8(text))
        return lowerCased(text);
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), lowerCaseByte);
    return lower;
}

std::string fileExtension(std::string_view name) {
    return lowerCase(rawFileExtension(name));
}

std::string_view lowerCaseExtension(std::string_view name, std::span<char> buffer) {
    const std::string_view extension = rawFileExtension(name);
    if (std::ranges::none_of(extension, mayChange))
        return extension;
    if (std::ranges::all_of(extension, isASCII)) {
        if (extension.size() > buffer.size())
            return extension;
        std::ranges::transform(extension, buffer.begin(), lowerCaseByte);
        return {buffer.data(), extension.size()};
    }
    const std::string lower = lowerCase(extension);
    if (lower.size() > buffer.size())
        return extension;
    std::ranges::copy(lower, buffer.begin());
    return {buffer.data(), lower.size()};
}

} // namespace tarnwell::PathUtil
