#pragma once

// Numbers as JSON writes them. RapidJSON is asked for their texts only: its own conversion makes 6.5e296 of
// 0e99, and its exponents wrap round where a fraction of many digits meets one near the 32-bit limit.

#include <optional>
#include <string_view>

namespace tarnwell {

/// Whether the whole text is a number as JSON writes them.
bool isJSONNumber(std::string_view text);

/// The double nearest to the number that is the whole text, the same in every locale. Nothing for a text that
/// is not a JSON number, or for a number beyond the largest double.
std::optional<double> doubleFromJSONNumber(std::string_view text);

} // namespace tarnwell
