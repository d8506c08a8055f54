#include "TarnwellCLIKit/CLIMain.hpp"

#include "TarnwellCLIKit/CLIRunner.hpp"
#include "TarnwellCLIKit/CLIServices.hpp"

namespace tarnwell::CLIMain {

CLIResult run(const std::vector<std::string>& arguments, const TextSink& output, CLIStyles styles) {
    return CLIRunner::run(arguments, CLIServices::live(), output, styles);
}

} // namespace tarnwell::CLIMain
