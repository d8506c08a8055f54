#pragma once

// trash PATH..., trash list, size, restore, empty: the Trash, with an outcome for every item.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct TrashRequest {
    enum class Verb : std::uint8_t { move, list, size, restore, empty };
    Verb verb = Verb::move;
    /// As typed.
    std::vector<std::string> paths;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const TrashRequest&) const = default;

    static const TidyCommandSpec spec;
    static TrashRequest read(const TidyArguments& arguments);
};

TidyResult run(const TrashRequest& request, TidyContext& context);

/// Whether a question stands before a move to the Trash: not with --yes, and not on a terminal when the
/// settings say so.
bool isAskedBeforeTrash(TidyContext& context, const TidyActChoices& choices);

/// Whether something may go to the Trash: as `TidyContext::consent`, but a terminal is not asked when the
/// settings say that it need not be.
TidyContext::Consent consentToTrash(TidyContext& context, const TidyActChoices& choices,
                                    const std::string& question);

} // namespace tarnwell
