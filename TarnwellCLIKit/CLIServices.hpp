#pragma once

// Everything that a command does to the machine, as replaceable functions.

#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <filesystem>
#include <functional>
#include <future>

namespace tarnwell {

struct CLIServices {
    /// Scans a folder with the default options. The future throws a std::exception whose `what()` is the
    /// description for the user.
    std::function<std::future<ScanResult>(const std::filesystem::path&)> scan;

    /// The services of the real machine, made once. Safe from any thread.
    static const CLIServices& live();
};

} // namespace tarnwell
