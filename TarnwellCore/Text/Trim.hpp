#pragma once

// Taking the blanks off text that a user typed or a tool printed.

#include <string_view>

namespace tarnwell {

/// The text without white space and line breaks at its two ends, those of Unicode included. Bytes that are
/// not UTF-8 are kept.
std::string_view trimmed(std::string_view text);

} // namespace tarnwell
