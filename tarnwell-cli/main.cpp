#include "TarnwellCLIKit/CLIMain.hpp"

int main(int count, char** values) {
    return tarnwell::CLIMain::run({values + 1, values + count}).exitCode;
}
