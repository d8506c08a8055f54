#pragma once

// Runs commands against a table of services. Prints nothing and never exits: what a command did is its
// result.

#include "TarnwellCLIKit/CLIResult.hpp"
#include "TarnwellCLIKit/CLIServices.hpp"

#include <span>
#include <string>

namespace tarnwell::CLIRunner {

/// Runs the command that the arguments (without the program's name) ask for. Usage errors are found before
/// any service is called. Whatever a command throws becomes its result: exit code 1, the description and a
/// line feed on standard error, nothing on standard output.
CLIResult run(std::span<const std::string> arguments, const CLIServices& services) noexcept;

} // namespace tarnwell::CLIRunner
