#pragma once

// What the user asked for, once the arguments are understood.

#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace tarnwell {

/// The form of a listing.
enum class CLITextFormat { human, json, csv };

/// Scan a folder and list what is largest in it.
struct CLIScanRequest {
    /// As typed; may begin with a tilde, may be relative.
    std::string path;
    CLITextFormat format = CLITextFormat::human;
    /// Levels of children that are listed.
    std::int64_t depth = 1;
    /// Children that are listed in each folder; all when absent.
    std::optional<std::int64_t> top = std::nullopt;
    SizeMode sizeMode = SizeMode::allocated;

    bool operator==(const CLIScanRequest&) const = default;
};

/// Scan a folder and store a snapshot of it.
struct CLISnapshotSave {
    std::string path;
    bool json = false;

    bool operator==(const CLISnapshotSave&) const = default;
};

/// List the stored snapshots.
struct CLISnapshotList {
    bool json = false;

    bool operator==(const CLISnapshotList&) const = default;
};

/// Compare two stored snapshots, each named by its identifier, by a prefix of it, or by its place in time.
struct CLISnapshotDiff {
    std::string before;
    std::string after;
    bool json = false;

    bool operator==(const CLISnapshotDiff&) const = default;
};

/// Print the usage text.
struct CLIHelp {
    bool operator==(const CLIHelp&) const = default;
};

using CLICommand = std::variant<CLIScanRequest, CLISnapshotSave, CLISnapshotList, CLISnapshotDiff, CLIHelp>;

} // namespace tarnwell
