#pragma once

// frees PATH...: what goes free when these go together, and why not more.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct FreesRequest {
    std::vector<std::string> paths;
    /// What is looked through for others that share with them; the folder that holds all of them when absent.
    std::optional<std::string> within = {};
    TidyScanChoices scan;
    TidyOutputChoices output;

    bool operator==(const FreesRequest&) const = default;

    static const TidyCommandSpec spec;
    static FreesRequest read(const TidyArguments& arguments);
};

TidyResult run(const FreesRequest& request, TidyContext& context);

} // namespace tarnwell
