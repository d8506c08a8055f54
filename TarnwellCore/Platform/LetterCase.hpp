#pragma once

// Letter case of every script, the same for every user.

#include <string>
#include <string_view>

namespace tarnwell {

/// The text in lower case by the rules that hold in no language in particular. `text` is valid UTF-8. Safe
/// from any thread.
std::string lowerCased(std::string_view text);

} // namespace tarnwell
