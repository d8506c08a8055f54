#pragma once

// The one way in which the program gives up: a broken invariant that no caller could handle.

#include <string_view>

namespace tarnwell {

/// Writes "tarnwell: fatal error: " and the message to standard error and aborts the process.
[[noreturn]] void fatalError(std::string_view message) noexcept;

} // namespace tarnwell
