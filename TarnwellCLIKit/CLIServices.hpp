#pragma once

// Everything that a command does to the machine, as replaceable functions.

#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include <filesystem>
#include <functional>
#include <future>
#include <memory>

namespace tarnwell {

struct CLIServices {
    /// Scans a folder with the default options. The future throws a std::exception whose `what()` is the
    /// description for the user.
    std::function<std::future<ScanResult>(const std::filesystem::path&)> scan;

    /// Opens the store of snapshots. Throws a std::exception likewise.
    std::function<std::unique_ptr<SnapshotStore>()> snapshotStore;

    /// The services of the real machine, made once. Safe from any thread.
    static const CLIServices& live();
};

} // namespace tarnwell
