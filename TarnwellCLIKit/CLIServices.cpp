#include "TarnwellCLIKit/CLIServices.hpp"

#include "TarnwellCore/Scanning/DiskScanner.hpp"

namespace tarnwell {

const CLIServices& CLIServices::live() {
    static const CLIServices services{
        .scan = [](const std::filesystem::path& url) { return DiskScanner().scan(url, ScanOptions{}); },
        .snapshotStore = [] { return std::make_unique<SnapshotStore>(); },
    };
    return services;
}

} // namespace tarnwell
