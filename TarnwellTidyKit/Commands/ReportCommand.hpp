#pragma once

// report FOLDER: what is in a folder, on one page.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct ReportRequest {
    std::string folder;
    /// How many of the largest files and folders are listed.
    std::int64_t top = 10;
    /// Whether the history keeps the scan. It never keeps one that left something out by an option.
    bool isKept = true;
    TidyScanChoices scan;
    TidyOutputChoices output;

    bool operator==(const ReportRequest&) const = default;

    static const TidyCommandSpec spec;
    static ReportRequest read(const TidyArguments& arguments);
};

TidyResult run(const ReportRequest& request, TidyContext& context);

} // namespace tarnwell
