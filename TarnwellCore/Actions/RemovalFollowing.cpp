#include "TarnwellCore/Actions/RemovalFollowing.hpp"

#include <string>
#include <vector>

namespace tarnwell {

std::size_t noteMoved(RemovalTracker& tracker, std::span<const TrashOutcome> outcomes) {
    std::vector<std::string> paths;
    for (const TrashOutcome& outcome : outcomes)
        if (outcome.succeeded())
            paths.push_back(outcome.source.native());
    return tracker.noteRemoved(paths);
}

} // namespace tarnwell
