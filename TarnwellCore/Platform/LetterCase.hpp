#pragma once

// Letter case of every script.

#include <string>
#include <string_view>

namespace tarnwell {

/// The text in lower case by the rules that hold in no language in particular, the same for every user.
/// `text` is valid UTF-8. Safe from any thread.
std::string lowerCased(std::string_view text);

/// The form in which texts are equal that differ in case only, by the rules of the user's language, or in how
/// their letters are composed. For comparing, not for showing. `text` is valid UTF-8, and so is what is
/// returned. Safe from any thread.
std::string caseFolded(std::string_view text);

/// What `caseFolded` makes of this character wherever it stands; 0 where that depends on its neighbours or is
/// not one character. Safe from any thread.
char32_t caseFoldedAlone(char32_t character);

} // namespace tarnwell
