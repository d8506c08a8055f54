#include "TarnwellCore/Scanning/ByteFormatter.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"

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

/// One decimal unless it is 0.
void appendWithAtMostOneDecimal(std::string& text, double value) {
    appendFixedDecimals(text, value, 1);
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
        appendFixedDecimals(text, value, 0);
    appendUnit(text, unit);
    return text;
}

std::string string(std::int64_t bytes, int decimals) {
    const std::uint64_t size = magnitude(bytes);
    if (size <= 999)
        return bytesText(bytes);
    const auto [value, unit] = scaled(size);
    std::string text(bytes < 0 ? "-" : "");
    appendFixedDecimals(text, value, decimals);
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
        appendFixedDecimals(text, value, 0);
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
    appendFixedDecimals(text, value, decimals);
    text += '%';
    return text;
}

} // namespace tarnwell::ByteFormatter
