#pragma once

// The user's shell in a folder, on the terminal that the program has given back.

#include <string>

namespace tarnwell {

/// Runs it and returns when it ends; `errors` becomes its standard error. Empty, or why it could not be
/// started. Signals that the program ignores are as usual for it.
std::string runUserShell(const std::string& folder, int errors = 2);

} // namespace tarnwell
