#pragma once

// changes FOLDER: what grew and shrank since a snapshot.

#include "TarnwellTidyKit/Commands/SnapshotCauses.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct ChangesRequest {
    std::string folder;
    /// "latest", "previous", a date, an age, or the beginning of an identifier.
    std::string since = "latest";
    /// Bytes from which a change is listed.
    std::int64_t minimum = 10'000'000;
    std::int64_t top = 20;
    /// The few changes that matter, new and gone folders, categories and the volume's room instead of a list.
    bool digest = false;
    TidyScanChoices scan;
    TidyOutputChoices output;

    bool operator==(const ChangesRequest&) const = default;

    static const TidyCommandSpec spec;
    static ChangesRequest read(const TidyArguments& arguments);
};

TidyResult run(const ChangesRequest& request, TidyContext& context);

} // namespace tarnwell
