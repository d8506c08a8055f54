#include "TarnwellCore/Platform/UserDefaults.hpp"

#include "TarnwellCore/Platform/JSONNumber.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace tarnwell {
namespace {

std::optional<bool> booleanFromText(const std::string& text) {
    std::string lower = text;
    std::ranges::transform(lower, lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
    });
    if (lower == "yes" || lower == "true" || lower == "1")
        return true;
    if (lower == "no" || lower == "false" || lower == "0")
        return false;
    return std::nullopt;
}

std::int64_t integerFromNumber(double number) {
    // 2^63 is the first double beyond the integers.
    constexpr double limit = 9'223'372'036'854'775'808.0;
    if (number >= limit)
        return std::numeric_limits<std::int64_t>::max();
    if (number < -limit)
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(number);
}

std::optional<double> asNumber(const UserDefaultsValue& value) {
    if (const auto* number = std::get_if<double>(&value))
        return std::isfinite(*number) ? std::optional(*number) : std::nullopt;
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        return static_cast<double>(*integer);
    if (const auto* boolean = std::get_if<bool>(&value))
        return *boolean ? 1.0 : 0.0;
    if (const auto* text = std::get_if<std::string>(&value))
        return doubleFromJSONNumber(*text);
    return std::nullopt;
}

std::optional<std::int64_t> asInteger(const UserDefaultsValue& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        return *integer;
    const std::optional<double> number = asNumber(value);
    return number ? std::optional(integerFromNumber(*number)) : std::nullopt;
}

std::optional<bool> asBoolean(const UserDefaultsValue& value) {
    if (const auto* boolean = std::get_if<bool>(&value))
        return *boolean;
    if (const auto* text = std::get_if<std::string>(&value))
        return booleanFromText(*text);
    const std::optional<double> number = asNumber(value);
    return number ? std::optional(*number != 0) : std::nullopt;
}

/// A text that is not UTF-8 is stored as data, so data reads as a text too.
std::optional<std::string> asString(const UserDefaultsValue& value) {
    if (const auto* text = std::get_if<std::string>(&value))
        return *text;
    if (const auto* data = std::get_if<DataValue>(&value))
        return data->bytes;
    return std::nullopt;
}

std::optional<std::string> asData(const UserDefaultsValue& value) {
    const auto* data = std::get_if<DataValue>(&value);
    return data != nullptr ? std::optional(data->bytes) : std::nullopt;
}

template <class Exact>
std::optional<Exact> asExactly(const UserDefaultsValue& value) {
    const auto* exact = std::get_if<Exact>(&value);
    return exact != nullptr ? std::optional(*exact) : std::nullopt;
}

bool isFinite(const UserDefaultsValue& value) {
    if (const auto* number = std::get_if<double>(&value))
        return std::isfinite(*number);
    if (const auto* date = std::get_if<Date>(&value))
        return std::isfinite(date->time_since_epoch().count());
    return true;
}

} // namespace

void UserDefaults::registerDefaults(const Values& values) {
    const std::lock_guard guard(mutex_);
    for (const auto& [key, value] : values)
        registered_.insert_or_assign(key, value);
}

std::optional<UserDefaultsValue> UserDefaults::registeredValue(std::string_view key) const {
    const std::lock_guard guard(mutex_);
    const auto found = registered_.find(key);
    return found != registered_.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<UserDefaultsValue> UserDefaults::object(std::string_view key) const {
    const std::optional<UserDefaultsValue> value = storedValue(key);
    return value ? value : registeredValue(key);
}

template <class Result>
std::optional<Result> UserDefaults::read(std::string_view key,
                                         std::optional<Result> (*convert)(const UserDefaultsValue&)) const {
    if (const std::optional<UserDefaultsValue> stored = storedValue(key))
        if (std::optional<Result> result = convert(*stored))
            return result;
    const std::optional<UserDefaultsValue> registered = registeredValue(key);
    return registered ? convert(*registered) : std::nullopt;
}

std::optional<bool> UserDefaults::boolean(std::string_view key) const {
    return read(key, asBoolean);
}
std::optional<std::int64_t> UserDefaults::integer(std::string_view key) const {
    return read(key, asInteger);
}
std::optional<double> UserDefaults::number(std::string_view key) const {
    return read(key, asNumber);
}
std::optional<std::string> UserDefaults::string(std::string_view key) const {
    return read(key, asString);
}
std::optional<std::vector<std::string>> UserDefaults::stringArray(std::string_view key) const {
    return read(key, asExactly<std::vector<std::string>>);
}
std::optional<std::string> UserDefaults::data(std::string_view key) const {
    return read(key, asData);
}
std::optional<Date> UserDefaults::date(std::string_view key) const {
    return read(key, asExactly<Date>);
}

void UserDefaults::set(std::string_view key, UserDefaultsValue value) {
    Changes changes;
    changes.emplace(key, std::move(value));
    apply(std::move(changes));
}

void UserDefaults::remove(std::string_view key) {
    Changes changes;
    changes.emplace(key, std::nullopt);
    apply(std::move(changes));
}

std::optional<UserDefaultsValue> UserDefaults::storable(std::optional<UserDefaultsValue> value) {
    return value && isFinite(*value) ? std::move(value) : std::nullopt;
}

void UserDefaults::change(std::string_view key, const Change& change) {
    const std::lock_guard guard(changing_);
    synchronize(); // brings what others have stored, too
    apply({{std::string(key), change(storedValue(key))}});
    synchronize();
}

void UserDefaults::apply(Changes changes) {
    for (auto& [key, value] : changes)
        value = storable(std::move(value));
    if (!changes.empty())
        store(std::move(changes));
}

} // namespace tarnwell
