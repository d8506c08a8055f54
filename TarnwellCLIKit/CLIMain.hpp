#pragma once

// The whole command-line tool as one call: arguments in, result out.

#include "TarnwellCLIKit/CLIResult.hpp"
#include "TarnwellCLIKit/CLIStyles.hpp"
#include "TarnwellCore/Text/TextOutput.hpp"

#include <string>
#include <vector>

namespace tarnwell::CLIMain {

/// Runs the command that the arguments (without the program's name) ask for, with the live services. Long
/// listings go to `output` where there is one, instead of into the result. `styles` tell what the two streams
/// lead to.
CLIResult run(const std::vector<std::string>& arguments, const TextSink& output = {}, CLIStyles styles = {});

} // namespace tarnwell::CLIMain
