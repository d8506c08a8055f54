#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <iostream>

int main(int count, char** arguments) try {
    const tarnwell::ScanResult scan = tarnwell::DiskScanner().scan(count > 1 ? arguments[1] : ".").get();
    for (const tarnwell::FileNode* file : scan.root->largestFiles(10, 1))
        std::cout << tarnwell::ByteFormatter::string(file->size, "0 bytes") << "  " << file->path() << '\n';
} catch (const tarnwell::ScanError& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
