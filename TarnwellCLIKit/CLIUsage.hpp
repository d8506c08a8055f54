#pragma once

// The text of `tarnwell --help`.

#include <string_view>

namespace tarnwell::CLIUsage {

/// The whole text with its last line feed.
std::string_view text();

} // namespace tarnwell::CLIUsage
