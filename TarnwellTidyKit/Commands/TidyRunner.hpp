#pragma once

// Runs commands against a table of services. Prints nothing and never exits: what a command did is its
// result.

#include "TarnwellTidyKit/Commands/BrowseCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyResult.hpp"
#include "TarnwellTidyKit/Commands/TidyServices.hpp"
#include "TarnwellTidyKit/Commands/TidySurroundings.hpp"

#include <span>
#include <string>

namespace tarnwell::TidyRunner {

/// Runs the command that the arguments (without the program's name) ask for. Usage errors are found before
/// any service is called. Whatever a command throws becomes its result: exit code 1 and the description on
/// standard error; 130 when it was called off. `browser` is empty where there is no terminal.
TidyResult run(std::span<const std::string> arguments, const TidyServices& services,
               const TidySurroundings& surroundings, const TidyBrowser& browser = {}) noexcept;

} // namespace tarnwell::TidyRunner
