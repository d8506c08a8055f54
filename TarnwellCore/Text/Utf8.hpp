#pragma once

// Names are bytes; documents are UTF-8. Between the two, what is not UTF-8 becomes U+FFFD.

#include <string>
#include <string_view>

namespace tarnwell {

/// Whether all of `text` is well-formed UTF-8 (no overlong forms, no surrogates, nothing beyond U+10FFFF).
bool isValidUTF8(std::string_view text);

/// A copy in which each maximal ill-formed part is one U+FFFD, as Unicode recommends ("substitution of
/// maximal subparts").
std::string repairedUTF8(std::string_view text);

} // namespace tarnwell
