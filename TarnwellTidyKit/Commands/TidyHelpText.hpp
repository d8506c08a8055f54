#pragma once

// The help, and what shells complete; both are made from the table of commands.

#include "TarnwellTidyKit/Commands/TidySpec.hpp"

#include <span>
#include <string>

namespace tarnwell {

/// All commands, a line each.
std::string tidyHelp();
/// One command with its options.
std::string tidyHelp(const TidyCommandSpec& command);

/// What may stand in the place of the last of the words behind the program's name: a line each, the word, a
/// tab and what it means. A line ":folders" or ":paths" asks the shell for names of its own.
std::string tidyCompletions(std::span<const std::string> words);

} // namespace tarnwell
