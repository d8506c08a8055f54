#include "TarnwellCore/Classification/PathUtil.hpp"

#include <algorithm>

namespace tarnwell::PathUtil {

namespace {

constexpr bool isUpperCase(char byte) {
    return byte >= 'A' && byte <= 'Z';
}

constexpr char lowerCase(char byte) {
    return isUpperCase(byte) ? static_cast<char>(byte - 'A' + 'a') : byte;
}

} // namespace

std::string fileExtension(std::string_view name) {
    std::string extension(rawFileExtension(name));
    std::ranges::transform(extension, extension.begin(), lowerCase);
    return extension;
}

std::string_view lowerCaseExtension(std::string_view name, std::span<char> buffer) {
    const std::string_view extension = rawFileExtension(name);
    if (extension.size() > buffer.size() || std::ranges::none_of(extension, isUpperCase))
        return extension;
    std::ranges::transform(extension, buffer.begin(), lowerCase);
    return {buffer.data(), extension.size()};
}

} // namespace tarnwell::PathUtil
