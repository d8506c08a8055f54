#pragma once

// Why a scan gave no result. What goes wrong below the root is counted in the result instead.

#include <stdexcept>
#include <string>

namespace tarnwell {

/// `what()` is the description for the user.
class ScanError : public std::runtime_error {
public:
    enum class Kind { rootNotFound, rootNotADirectory, rootNotReadable, cancelled };

    static ScanError rootNotFound(const std::string& path);
    static ScanError rootNotADirectory(const std::string& path);
    static ScanError rootNotReadable(const std::string& path, int errorNumber);
    static ScanError cancelled();

    Kind kind() const noexcept { return kind_; }
    /// The scan's root; empty for `cancelled`.
    const std::string& path() const noexcept { return path_; }
    /// The system's error number; 0 unless `rootNotReadable`.
    int errorNumber() const noexcept { return errorNumber_; }

private:
    ScanError(Kind kind, const std::string& path, int errorNumber, const std::string& description)
        : std::runtime_error(description), kind_(kind), path_(path), errorNumber_(errorNumber) {}

    Kind kind_;
    std::string path_;
    int errorNumber_;
};

} // namespace tarnwell
