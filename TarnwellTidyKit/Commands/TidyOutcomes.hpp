#pragma once

// What became of each item that a command acted on.

#include "TarnwellTidyKit/Commands/TidyContext.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct TidyOutcome {
    /// The path or the name that was acted on, any bytes.
    std::string source;
    /// What happened to it, for people: "in the Trash", "freed 4 MB"; of a failure nothing.
    std::string done = {};
    /// Where it now lies.
    std::optional<std::string> trashedTo = {};
    /// Where it is again.
    std::optional<std::string> restoredTo = {};
    std::optional<std::int64_t> bytesFreed = {};
    /// The finding that it belongs to.
    std::optional<std::string> finding = {};
    /// Why nothing happened, for the user.
    std::optional<std::string> failure = {};

    bool operator==(const TidyOutcome&) const = default;
};

/// Of what an interruption came before.
inline constexpr std::string_view notTouchedReason = "It was not touched: interrupted.";

struct TidyOutcomes {
    std::vector<TidyOutcome> all = {};
    bool isInterrupted = false;
    /// How many of the folders that were read for this could not be; absent where none were read.
    std::optional<std::int64_t> inaccessibleCount = {};

    bool hasFailures() const;
    /// Does one indivisible step after the other; the steps behind an interruption fail with that reason.
    void actOnEach(const TidyContext& context, const std::vector<std::string>& sources,
                   const std::function<TidyOutcome(const std::string&)>& step);
    /// Outcomes as text or document, the exit code that goes with them, and a line for people to end with.
    TidyResult result(const TidyContext& context, const TidyOutputChoices& output,
                      std::string_view closing) const;
};

/// Writes the member "outcomes".
void writeOutcomes(JSONWriter& json, const std::vector<TidyOutcome>& outcomes);

TidyOutcome outcomeOf(const TrashOutcome& moved);

/// Items that a command moves to the Trash one by one, which can be restored as one set.
class TidyTrashSet {
public:
    /// Notes what is about to be moved, but what must stay where it is.
    TidyTrashSet(const TidyContext& context, const std::vector<std::string>& sources,
                 const std::filesystem::path& home);
    /// The outcome of moving one of the sources, unless it must stay.
    TidyOutcome move(const std::string& source);

private:
    std::map<std::string, std::string, std::less<>> reasonsToStay_;
    std::map<std::string, std::size_t, std::less<>> numbers_;
    std::optional<TrashMoves> moves_;
};
/// The outcome of freeing a file's local copy.
TidyOutcome evicted(const TidyContext& context, const std::string& source,
                    const std::vector<SyncedRoot>& roots);
/// The outcome of emptying the Trash.
TidyOutcome emptied(const TidyContext& context, const std::filesystem::path& home);

/// What would be done, for --dry-run.
TidyResult plannedResult(const TidyContext& context, const TidyOutputChoices& output,
                         const std::vector<TidyOutcome>& planned,
                         std::optional<std::int64_t> inaccessibleCount = {});
/// A question with the first of the items that it is about.
std::string questionText(std::string_view question, const std::vector<std::string>& items);

/// Said when something was moved there.
inline constexpr std::string_view trashNote =
    "Files in the Trash still occupy disk space until it is emptied. Emptying is permanent.";

} // namespace tarnwell
