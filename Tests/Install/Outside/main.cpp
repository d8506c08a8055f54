// Uses both libraries, and enough of them to need every library that they need.

#include "TarnwellCLIKit/TarnwellCLIKit.hpp"
#include "TarnwellCore/TarnwellCore.hpp"

#include <cstdio>
#include <string>

int main(int count, char** arguments) {
    if (count != 2)
        return 2;
    const std::string folder = arguments[1];
    const tarnwell::ScanResult scan = tarnwell::DiskScanner().scan(folder).get();
    std::printf("Tarnwell %s, folder: %zu child\n", TARNWELL_VERSION, scan.root->children().size());

    const std::string date = tarnwell::DateFormatting::relativeString(scan.startedAt, scan.startedAt);
    static_cast<void>(tarnwell::DiskInfo::mountedVolumes(true));
    if (date.empty() || tarnwell::UUID::random() == tarnwell::UUID{})
        return 1;

    const tarnwell::CLIResult listing = tarnwell::CLIMain::run({"scan", folder});
    std::fputs(listing.standardOutput.c_str(), stdout);
    return listing.exitCode;
}
