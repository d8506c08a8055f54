#include "TarnwellCLIKit/CLIMain.hpp"

#include "TarnwellCLIKit/CLIRunner.hpp"
#include "TarnwellCLIKit/CLIServices.hpp"

namespace tarnwell::CLIMain {

CLIResult run(const std::vector<std::string>& arguments) {
    return CLIRunner::run(arguments, CLIServices::live());
}

} // namespace tarnwell::CLIMain
