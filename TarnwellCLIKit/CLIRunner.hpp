#pragma once

// Runs commands against a table of services. Prints nothing and never exits: what a command did is its
// result.

#include "TarnwellCLIKit/CLIResult.hpp"
#include "TarnwellCLIKit/CLIServices.hpp"
#include "TarnwellCLIKit/CLIStyles.hpp"
#include "TarnwellCore/Text/TextOutput.hpp"

#include <span>
#include <string>

namespace tarnwell::CLIRunner {

/// Runs the command that the arguments (without the program's name) ask for. Usage errors are found before
/// any service is called. Whatever a command throws becomes its result: exit code 1, the description and a
/// line feed on standard error, nothing on standard output.
///
/// A listing may be several times as long as the tree takes memory: with `output`, it goes there piece by
/// piece instead of into the result, once nothing but a lack of memory can fail any more: in order and one at
/// a time, but not always on the calling thread. What `output` throws is treated likewise.
///
/// Results are texts for the streams that `styles` describes; by default they hold names byte for byte.
CLIResult run(std::span<const std::string> arguments, const CLIServices& services,
              const TextSink& output = {}, CLIStyles styles = {}) noexcept;

} // namespace tarnwell::CLIRunner
