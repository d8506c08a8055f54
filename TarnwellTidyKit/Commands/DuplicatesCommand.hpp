#pragma once

// duplicates FOLDER...: files of equal contents, and what can be done about them.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

/// Which file of a group stays when the others go to the Trash.
enum class DuplicateKeeper : std::uint8_t { oldest, newest, shortestPath, firstFolder };

struct DuplicatesRequest {
    enum class Verb : std::uint8_t { list, share, trashExtras };
    Verb verb = Verb::list;
    std::vector<std::string> folders;
    DuplicateKeeper keeper = DuplicateKeeper::oldest;
    /// Bytes; as the settings have it when absent.
    std::optional<std::int64_t> minimumSize = {};
    std::optional<std::int64_t> top = {};
    TidyScanChoices scan;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const DuplicatesRequest&) const = default;

    static const TidyCommandSpec spec;
    static DuplicatesRequest read(const TidyArguments& arguments);
};

TidyResult run(const DuplicatesRequest& request, TidyContext& context);

} // namespace tarnwell
