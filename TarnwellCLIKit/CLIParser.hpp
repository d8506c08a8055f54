#pragma once

// From the argument list to a command. Pure: no file is touched, so that every usage error is found before
// any work starts. Arguments are bytes; they are compared and quoted back as they are.

#include "TarnwellCLIKit/CLICommand.hpp"

#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tarnwell {

struct CLIParseError {
    /// The whole text to print, with its line feed.
    std::string message;

    bool operator==(const CLIParseError&) const = default;
};

namespace CLIParser {

using Arguments = std::span<const std::string>;
using Result = std::expected<CLICommand, CLIParseError>;

/// How every message of an error ends.
inline constexpr std::string_view messageEnd = "\nSee `tarnwell --help` for usage.\n";

/// `arguments` come without the program's name.
Result parse(Arguments arguments);

/// A decimal integer from 0 up that fits 64 bits, with an optional sign ("+3", "-0") and nothing else.
std::optional<std::int64_t> nonNegative(std::string_view text);

} // namespace CLIParser

} // namespace tarnwell
