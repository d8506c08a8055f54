#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include "TarnwellCore/Platform/JSONNumber.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <limits>
#include <string>
#include <utility>

namespace tarnwell {

namespace {

char lowerCase(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Takes the digits at the beginning of a text.
std::string_view takeDigits(std::string_view& text) {
    std::size_t length = 0;
    while (length < text.size() && isDigit(text[length]))
        ++length;
    const std::string_view digits = text.substr(0, length);
    text.remove_prefix(length);
    return digits;
}

std::optional<std::int64_t> wholeNumber(std::string_view digits) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size())
        return std::nullopt;
    return number;
}

/// The bytes of a unit; nothing for what is none.
std::optional<std::int64_t> unitBytes(std::string_view unit) {
    constexpr std::string_view letters = "kmgtpe";
    std::string name;
    for (const char letter : unit)
        name += lowerCase(letter);
    if (name.empty() || name == "b")
        return 1;
    const auto power = letters.find(name.front());
    const std::string_view ending = std::string_view(name).substr(1);
    if (power == std::string_view::npos || (!ending.empty() && ending != "b" && ending != "ib"))
        return std::nullopt;
    std::int64_t bytes = 1;
    for (std::size_t step = 0; step <= power; ++step)
        bytes *= ending == "ib" ? 1024 : 1000;
    return bytes;
}

/// The hours of a span of time such as "12h" or "30d".
std::optional<std::int64_t> hoursFromText(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, std::int64_t>, 5> units = {
        {{"h", 1}, {"d", 24}, {"w", 7 * 24}, {"mo", 30 * 24}, {"y", 365 * 24}}};
    constexpr std::int64_t most = 1'000'000; // hours; keeps dates where calendars know them
    const auto number = wholeNumber(takeDigits(text));
    for (const auto& [name, hours] : units)
        if (number && *number <= most / hours && text == name)
            return *number * hours;
    return std::nullopt;
}

std::optional<Date> beginningOfDay(std::string_view text) {
    // A date that does not exist is refused there.
    if (text.size() != 10 || !dateFromISO8601(std::string(text) + "T00:00:00Z"))
        return std::nullopt;
    std::tm day = {};
    day.tm_year = static_cast<int>(*wholeNumber(text.substr(0, 4))) - 1900;
    day.tm_mon = static_cast<int>(*wholeNumber(text.substr(5, 2))) - 1;
    day.tm_mday = static_cast<int>(*wholeNumber(text.substr(8, 2)));
    day.tm_isdst = -1;
    const std::time_t seconds = std::mktime(&day);
    return Date(std::chrono::duration<double>(static_cast<double>(seconds)));
}

} // namespace

std::optional<double> numberFromText(std::string_view text) {
    return doubleFromJSONNumber(text);
}

std::optional<std::int64_t> sizeFromText(std::string_view text) {
    const std::string_view digits = takeDigits(text);
    std::string_view fraction;
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        fraction = takeDigits(text);
        if (fraction.empty())
            return std::nullopt;
    }
    if (text.starts_with(' '))
        text.remove_prefix(1);
    const auto whole =
        digits.empty() && !fraction.empty() ? std::optional<std::int64_t>(0) : wholeNumber(digits);
    const auto unit = unitBytes(text);
    if (!whole || !unit)
        return std::nullopt;
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    if (*whole > largest / *unit)
        return std::nullopt;
    double part = 0;
    double place = 0.1;
    for (const char digit : fraction) {
        part += (digit - '0') * place;
        place /= 10;
    }
    // 0.1 and its like are no binary fractions: what is nearly whole is whole.
    const auto rest = static_cast<std::int64_t>(std::floor(part * static_cast<double>(*unit) + 1e-4));
    const std::int64_t bytes = *whole * *unit;
    return rest > largest - bytes ? std::nullopt : std::optional(bytes + rest);
}

std::int64_t sizeDifference(std::int64_t later, std::int64_t earlier) {
    std::int64_t difference = 0;
    if (!__builtin_sub_overflow(later, earlier, &difference))
        return difference;
    return later < earlier ? std::numeric_limits<std::int64_t>::min()
                           : std::numeric_limits<std::int64_t>::max();
}

std::optional<Date> momentFromText(std::string_view text, Date now) {
    if (const auto hours = hoursFromText(text))
        return now - std::chrono::duration<double>(static_cast<double>(*hours) * 3600);
    if (const auto date = beginningOfDay(text))
        return date;
    return dateFromISO8601(text);
}

std::optional<std::int64_t> daysFromText(std::string_view text) {
    const auto hours = hoursFromText(text);
    return hours && *hours % 24 == 0 ? std::optional(*hours / 24) : std::nullopt;
}

} // namespace tarnwell
