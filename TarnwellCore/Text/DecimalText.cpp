#include "TarnwellCore/Text/DecimalText.hpp"

#include <charconv>
#include <cmath>
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

} // namespace tarnwell
