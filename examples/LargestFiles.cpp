#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"

#include <unistd.h>

#include <iostream>

using namespace tarnwell;

int main(int count, char** arguments) try {
    const ScanResult scan = DiskScanner().scan(count > 1 ? arguments[1] : ".").get();
    const NameStyle style = nameStyle(::isatty(STDOUT_FILENO) == 1); // a name may hold what steers a terminal
    for (const FileNode* file : scan.root->largestFiles(10, 1))
        std::cout << ByteFormatter::string(file->size, "0 bytes") << "  " << styled(file->path(), style)
                  << '\n';
} catch (const ScanError& error) {
    std::cerr << styled(error.what(), nameStyle(::isatty(STDERR_FILENO) == 1)) << '\n';
    return 1;
}
