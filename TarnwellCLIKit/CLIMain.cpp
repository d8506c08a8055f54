#include "TarnwellCLIKit/CLIMain.hpp"

#include "TarnwellCLIKit/CLIRunner.hpp"
#include "TarnwellCLIKit/CLIServices.hpp"

namespace tarnwell::CLIMain {

CLIResult run(const std::vector<std::string>& arguments, const TextSink& output) {
    return CLIRunner::run(arguments, CLIServices::live(), output);
}

} // namespace tarnwell::CLIMain
