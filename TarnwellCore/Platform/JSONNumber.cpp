#include "TarnwellCore/Platform/JSONNumber.hpp"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <locale> // on macOS, what declares strtod_l
#include <string>

namespace tarnwell {

namespace {

bool takeCharacter(std::string_view& text, std::string_view anyOf) {
    if (text.empty() || anyOf.find(text.front()) == anyOf.npos)
        return false;
    text.remove_prefix(1);
    return true;
}

/// Takes all digits in front; false when there is none.
bool takeDigits(std::string_view& text) {
    const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
    text.remove_prefix(count);
    return count > 0;
}

} // namespace

bool isJSONNumber(std::string_view text) {
    takeCharacter(text, "-");
    if (!takeCharacter(text, "0") && !takeDigits(text))
        return false;
    if (takeCharacter(text, ".") && !takeDigits(text))
        return false;
    if (takeCharacter(text, "eE")) {
        takeCharacter(text, "+-");
        if (!takeDigits(text))
            return false;
    }
    return text.empty();
}

std::optional<double> doubleFromJSONNumber(std::string_view text) {
    static const locale_t plainLocale = ::newlocale(LC_ALL_MASK, "C", nullptr);
    if (!isJSONNumber(text))
        return std::nullopt;
    const double number = ::strtod_l(std::string(text).c_str(), nullptr, plainLocale);
    return std::isfinite(number) ? std::optional(number) : std::nullopt;
}

} // namespace tarnwell
