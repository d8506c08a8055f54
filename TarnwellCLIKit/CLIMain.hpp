#pragma once

// The whole command-line tool as one call: arguments in, result out.

#include "TarnwellCLIKit/CLIResult.hpp"

#include <string>
#include <vector>

namespace tarnwell::CLIMain {

/// Runs the command that the arguments (without the program's name) ask for, with the live services.
CLIResult run(const std::vector<std::string>& arguments);

} // namespace tarnwell::CLIMain
