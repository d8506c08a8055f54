#include "TarnwellCore/Scanning/ByteFormatter.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
#include <charconv>

namespace tarnwell::ByteFormatter {

namespace {

constexpr std::size_t gigabytes = 3;

struct Scaled {
    double value;
    std::size_t unit;
};

Scaled scaled(std::uint64_t size) {
    Scaled result{static_cast<double>(size) / 1000, 1};
    while (result.value >= 1000 && result.unit + 1 < units.size()) {
        result.value /= 1000;
        ++result.unit;
    }
    return result;
}

/// Appends what printf's "%.Nf" would print in the C locale. `value` is from 0 to 1000.
void appendFixed(std::string& text, double value, int decimals) {
    constexpr std::size_t integerDigits = 8;
    const auto precision = std::max(decimals, 0);
    char buffer[64];
    const std::size_t needed = integerDigits + static_cast<std::size_t>(precision);
    if (needed <= sizeof buffer) [[likely]] {
        text.append(
            buffer,
            std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, precision).ptr);
        return;
    }
    std::string digits(needed, '\0');
    char* const begin = digits.data();
    text.append(begin, std::to_chars(begin, begin + needed, value, std::chars_format::fixed, precision).ptr);
}

/// One decimal unless it is 0.
void appendWithAtMostOneDecimal(std::string& text, double value) {
    appendFixed(text, value, 1);
    if (text.ends_with(".0"))
        text.resize(text.size() - 2);
}

void appendUnit(std::string& text, std::size_t unit) {
    text += ' ';
    text += units[unit];
}

std::string bytesText(std::int64_t bytes) {
    std::string text = std::to_string(bytes);
    text += magnitude(bytes) == 1 ? " byte" : " bytes";
    return text;
}

} // namespace

std::string string(std::int64_t bytes, std::string_view zeroString) {
    if (bytes == 0)
        return std::string(zeroString);
    const std::uint64_t size = magnitude(bytes);
    if (size <= 999)
        return bytesText(bytes);
    const auto [value, unit] = scaled(size);
    std::string text(bytes < 0 ? "-" : "");
    if (unit >= gigabytes && value < 100)
        appendWithAtMostOneDecimal(text, value);
    else
        appendFixed(text, value, 0);
    appendUnit(text, unit);
    return text;
}

std::string string(std::int64_t bytes, int decimals) {
    const std::uint64_t size = magnitude(bytes);
    if (size <= 999)
        return bytesText(bytes);
    const auto [value, unit] = scaled(size);
    std::string text(bytes < 0 ? "-" : "");
    appendFixed(text, value, decimals);
    appendUnit(text, unit);
    return text;
}

std::string compact(std::int64_t bytes) {
    if (bytes == 0)
        return "0";
    const std::uint64_t size = magnitude(bytes);
    if (size < 1000)
        return std::to_string(bytes) + " B";
    const auto [value, unit] = scaled(size);
    std::string text(bytes < 0 ? "-" : "");
    if (value < 10)
        appendWithAtMostOneDecimal(text, value);
    else
        appendFixed(text, value, 0);
    appendUnit(text, unit);
    return text;
}

std::string percent(double fraction, int decimals) {
    double value = 100;
    if (fraction <= 0)
        value = 0;
    else if (fraction < 1)
        value = fraction * 100;
    if (value > 0 && value < 0.1)
        return "<0.1%";
    std::string text;
    appendFixed(text, value, decimals);
    text += '%';
    return text;
}

} // namespace tarnwell::ByteFormatter
