#include "TarnwellCore/Scanning/ScanError.hpp"

#include <system_error>

namespace tarnwell {

ScanError ScanError::rootNotFound(const std::string& path) {
    return {Kind::rootNotFound, path, 0, path + " does not exist."};
}

ScanError ScanError::rootNotADirectory(const std::string& path) {
    return {Kind::rootNotADirectory, path, 0, path + " is not a folder."};
}

ScanError ScanError::rootNotReadable(const std::string& path, int errorNumber) {
    return {Kind::rootNotReadable, path, errorNumber,
            path + " could not be opened (" + std::generic_category().message(errorNumber) +
                "). Tarnwell may need Full Disk Access."};
}

ScanError ScanError::cancelled() {
    return {Kind::cancelled, "", 0, "The scan was cancelled."};
}

} // namespace tarnwell
