#pragma once

// history [FOLDER]: how a folder grew from scan to scan, and when its volume is full.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace tarnwell {

struct HistoryRequest {
    /// All folders when there is none.
    std::optional<std::string> folder = {};
    std::optional<SizeMode> sizeMode = {};
    /// How many of the newest scans are listed; growth is told from all.
    std::optional<std::int64_t> top = {};
    TidyOutputChoices output;

    bool operator==(const HistoryRequest&) const = default;

    static const TidyCommandSpec spec;
    static HistoryRequest read(const TidyArguments& arguments);
};

TidyResult run(const HistoryRequest& request, TidyContext& context);

} // namespace tarnwell
