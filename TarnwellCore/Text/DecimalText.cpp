#include "TarnwellCore/Text/DecimalText.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace tarnwell {

void appendDecimalText(std::string& text, double value) {
    if (!std::isfinite(value)) {
        text += std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf";
        return;
    }
    // The longest fixed form here has 17 digits, a sign, a point and four leading zeros.
    char buffer[40];
    const double magnitude = std::fabs(value);
    const bool isPlain = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e16);
    const auto format = isPlain ? std::chars_format::fixed : std::chars_format::scientific;
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value, format).ptr;
    const std::string_view digits(buffer, static_cast<std::size_t>(end - buffer));
    text += digits;
    if (isPlain && digits.find('.') == std::string_view::npos)
        text += ".0";
}

std::string decimalText(double value) {
    std::string text;
    appendDecimalText(text, value);
    return text;
}

void appendFixedDecimals(std::string& text, double value, int decimals) {
    const int precision = std::max(decimals, 0);
    const auto append = [&](char* begin, std::size_t room) {
        const auto [end, error] =
            std::to_chars(begin, begin + room, value, std::chars_format::fixed, precision);
        if (error != std::errc())
            return false;
        text.append(begin, end);
        return true;
    };
    char buffer[64];
    if (append(buffer, sizeof buffer)) [[likely]]
        return;
    constexpr std::size_t longestWhole = std::numeric_limits<double>::max_exponent10 + 1;
    std::string digits(longestWhole + 2 + static_cast<std::size_t>(precision), '\0'); // a sign, a point
    append(digits.data(), digits.size());
}

} // namespace tarnwell
