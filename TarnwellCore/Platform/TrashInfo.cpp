#include "TarnwellCore/Platform/TrashInfo.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>

namespace tarnwell {

namespace {

bool isUnescaped(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           std::string_view("/-._~").find(byte) != std::string_view::npos;
}

std::optional<unsigned> hexDigit(char byte) {
    if (byte >= '0' && byte <= '9')
        return byte - '0';
    if (byte >= 'a' && byte <= 'f')
        return byte - 'a' + 10;
    if (byte >= 'A' && byte <= 'F')
        return byte - 'A' + 10;
    return std::nullopt;
}

/// "2004-08-31T22:32:08".
std::optional<Date> localDate(std::string_view text) {
    std::array<int, 6> numbers{};
    constexpr std::string_view separators = "--T::";
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), numbers[index]);
        if (error != std::errc() || numbers[index] < 0)
            return std::nullopt;
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        if (index < separators.size()) {
            if (!text.starts_with(separators[index]))
                return std::nullopt;
            text.remove_prefix(1);
        }
    }
    std::tm parts = {};
    if (numbers[0] < 1970 || numbers[0] > 9999)
        return std::nullopt;
    parts.tm_year = numbers[0] - 1900;
    parts.tm_mon = std::min(numbers[1], 12) - 1;
    parts.tm_mday = std::min(numbers[2], 31);
    parts.tm_hour = std::min(numbers[3], 24);
    parts.tm_min = std::min(numbers[4], 60);
    parts.tm_sec = std::min(numbers[5], 60);
    parts.tm_isdst = -1;
    const std::time_t time = std::mktime(&parts);
    if (time == -1)
        return std::nullopt;
    return Date(Date::duration(static_cast<double>(time)));
}

} // namespace

std::optional<TrashInfo> parseTrashInfo(std::string_view text) {
    TrashInfo info;
    bool isInGroup = false;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, length);
        text.remove_prefix(std::min(length + 1, text.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.starts_with('['))
            isInGroup = line == "[Trash Info]";
        if (!isInGroup)
            continue;
        // Of a line that comes twice the first counts.
        if (line.starts_with("Path=") && info.path.empty()) {
            auto path = percentDecoded(line.substr(5));
            if (!path || path->empty() || path->find('\0') != std::string::npos)
                return std::nullopt;
            info.path = *std::move(path);
        } else if (line.starts_with("DeletionDate=") && !info.deletionDate) {
            info.deletionDate = localDate(line.substr(13));
        }
    }
    return info.path.empty() ? std::nullopt : std::optional(std::move(info));
}

std::string percentEscaped(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        if (isUnescaped(byte)) {
            text += byte;
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        text += '%';
        text += digits[value >> 4];
        text += digits[value & 15];
    }
    return text;
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '%') {
            bytes += text[index];
            continue;
        }
        const auto high = index + 2 < text.size() ? hexDigit(text[index + 1]) : std::nullopt;
        const auto low = high ? hexDigit(text[index + 2]) : std::nullopt;
        if (!low)
            return std::nullopt;
        bytes += static_cast<char>(*high << 4 | *low);
        index += 2;
    }
    return bytes;
}

} // namespace tarnwell
