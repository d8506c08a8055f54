#pragma once

// Names are bytes; documents are UTF-8. Between the two, what is not UTF-8 becomes U+FFFD.

#include <cstddef>
#include <string>
#include <string_view>

namespace tarnwell {

/// What stands at the beginning of a text: a character, or bytes that are none.
struct Utf8Part {
    /// 0 for bytes that are no character.
    char32_t code = 0;
    /// In bytes, at least 1. Of an ill-formed text, the longest part that could have become a character.
    std::size_t length = 1;
    bool isWellFormed = false;
};

/// The beginning of a text that is not empty.
Utf8Part firstUTF8Part(std::string_view text);

/// Whether all of `text` is well-formed UTF-8 (no overlong forms, no surrogates, nothing beyond U+10FFFF).
bool isValidUTF8(std::string_view text);

/// How many bytes at the front of `text` are well-formed UTF-8.
std::size_t wellFormedUTF8Prefix(std::string_view text);

/// A copy in which each maximal ill-formed part is one U+FFFD, as Unicode recommends ("substitution of
/// maximal subparts").
std::string repairedUTF8(std::string_view text);

} // namespace tarnwell
