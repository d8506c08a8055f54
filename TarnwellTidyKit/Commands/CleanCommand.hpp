#pragma once

// clean ID...: does what findings offer.

#include "TarnwellTidyKit/Commands/FindingsCommand.hpp"

namespace tarnwell {

struct CleanRequest {
    std::vector<std::string> ids;
    /// All that is safe to remove, without naming it.
    bool allSafe = false;
    FindingsPlace place;
    TidyScanChoices scan;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const CleanRequest&) const = default;

    static const TidyCommandSpec spec;
    static CleanRequest read(const TidyArguments& arguments);
};

TidyResult run(const CleanRequest& request, TidyContext& context);

struct TidyOutcomes;
/// Does what a finding offers, with an outcome for each path or command.
void clearFinding(const SpaceSaverFinding& finding, const std::filesystem::path& home, TidyContext& context,
                  TidyOutcomes& outcomes);

} // namespace tarnwell
