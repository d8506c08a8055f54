#pragma once

// rules list, add, remove, enable, disable, test FOLDER: the cleanup rules in the settings.

#include "TarnwellCore/Analysis/CleanupRule.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct RulesRequest {
    enum class Verb : std::uint8_t { list, add, remove, enable, disable, test };
    Verb verb = Verb::list;
    /// The rule to add, without an ID.
    std::optional<CleanupRule> rule = {};
    /// IDs or names.
    std::vector<std::string> rules;
    /// What `test` looks through.
    std::string folder;
    TidyScanChoices scan;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const RulesRequest&) const = default;

    static const TidyCommandSpec spec;
    static RulesRequest read(const TidyArguments& arguments);
};

TidyResult run(const RulesRequest& request, TidyContext& context);

} // namespace tarnwell
