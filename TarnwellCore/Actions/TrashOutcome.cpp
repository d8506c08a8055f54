#include "TarnwellCore/Actions/TrashOutcome.hpp"

#include <algorithm>
#include <iterator>

namespace tarnwell {

std::map<std::filesystem::path, std::optional<std::filesystem::path>>
bySource(const std::vector<TrashOutcome>& outcomes) {
    std::map<std::filesystem::path, std::optional<std::filesystem::path>> landings;
    for (const TrashOutcome& outcome : outcomes)
        landings.insert_or_assign(outcome.source, outcome.trashedTo);
    return landings;
}

std::vector<TrashOutcome> failures(const std::vector<TrashOutcome>& outcomes) {
    std::vector<TrashOutcome> failed;
    std::ranges::copy_if(outcomes, std::back_inserter(failed),
                         [](const TrashOutcome& outcome) { return !outcome.succeeded(); });
    return failed;
}

} // namespace tarnwell
