#pragma once

// What became of one item that was to go to the Trash.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

struct TrashOutcome {
    /// The failure of an item that was left when moving was called off.
    static constexpr const char* calledOff = "It was not moved: that was called off.";

    /// The item asked for.
    std::filesystem::path source;
    /// Where it now lies; absent when it was not moved, or when the platform did not say where to.
    std::optional<std::filesystem::path> trashedTo;
    /// Why it was not moved, for the user.
    std::optional<std::string> failure;

    bool succeeded() const { return !failure.has_value(); }

    bool operator==(const TrashOutcome&) const = default;
};

/// Where each item went; of several outcomes for one source the last counts.
std::map<std::filesystem::path, std::optional<std::filesystem::path>>
bySource(const std::vector<TrashOutcome>& outcomes);

/// The outcomes with a failure, in order.
std::vector<TrashOutcome> failures(const std::vector<TrashOutcome>& outcomes);

} // namespace tarnwell
