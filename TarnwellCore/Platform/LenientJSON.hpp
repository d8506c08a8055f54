#pragma once

// JSON that others may write and the parser refuses, though only a single value of it is of no use.

#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A copy of the same length, byte for byte at the same places, that RapidJSON reads where it would give up
/// or go wrong:
///   - an escape for half a character (`\ud800` alone) stands as `\ufffd`;
///   - a number that is not plain (an exponent, hundreds of digits) stands as a fraction without meaning.
/// So whoever wants the number itself takes it from the original, at the same place. What is no JSON stays
/// none.
std::string parsableJSON(std::string_view text);

/// The texts of the elements of a list, without blanks around them. They lie in `array`, which has been
/// parsed: a value of another kind has none.
std::vector<std::string_view> jsonElements(std::string_view array);

/// Whether the bytes are text, as a document may hold it.
bool isUTF8(std::string_view text);

} // namespace tarnwell
