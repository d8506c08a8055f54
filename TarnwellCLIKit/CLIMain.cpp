#include "TarnwellCLIKit/CLIMain.hpp"

namespace tarnwell::CLIMain {

CLIResult run(const std::vector<std::string>&) {
    return {};
}

} // namespace tarnwell::CLIMain
