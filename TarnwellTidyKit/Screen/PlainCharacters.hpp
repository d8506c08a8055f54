#pragma once

// What stands for a character where only ASCII can be drawn.

#include <string_view>

namespace tarnwell {

/// The nearest of ASCII for the characters that views draw with (lines, bars, arrows, marks) and for Latin
/// letters with accents; '?' for all others. `character` is one of UTF-8, maybe with accents.
char plainCharacter(std::string_view character);

} // namespace tarnwell
