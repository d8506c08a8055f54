#pragma once

// How a command's two streams show the names that it prints. Only who prints knows what they lead to.

#include "TarnwellCore/Text/HarmlessText.hpp"

namespace tarnwell {

struct CLIStyles {
    /// Of standard output. `harmless` shows names in rows, paths and CSV fields with escapes, and has JSON
    /// documents escape the same characters as JSON does: they stay the same documents.
    NameStyle output = NameStyle::verbatim;
    /// Of standard error, where messages quote arguments and paths.
    NameStyle error = NameStyle::verbatim;

    bool operator==(const CLIStyles&) const = default;
};

} // namespace tarnwell
