#pragma once

// evict PATH...: frees the local copies of cloud files.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct EvictRequest {
    std::vector<std::string> paths;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const EvictRequest&) const = default;

    static const TidyCommandSpec spec;
    static EvictRequest read(const TidyArguments& arguments);
};

TidyResult run(const EvictRequest& request, TidyContext& context);

} // namespace tarnwell
