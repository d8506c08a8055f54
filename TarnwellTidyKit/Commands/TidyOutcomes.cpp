#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>
#include <variant>

namespace tarnwell {

namespace {

void writeOptional(JSONWriter& json, std::string_view key, const std::optional<std::string>& text) {
    json.key(key);
    if (text)
        json.string(*text);
    else
        json.null();
}

void writeOutcome(JSONWriter& json, const TidyOutcome& outcome) {
    json.beginObject();
    if (outcome.bytesFreed) {
        json.key("bytesFreed");
        json.integer(*outcome.bytesFreed);
    }
    writeOptional(json, "failure", outcome.failure);
    if (outcome.finding)
        writeOptional(json, "finding", outcome.finding);
    if (outcome.restoredTo)
        writeOptional(json, "restoredTo", outcome.restoredTo);
    json.key("source");
    json.string(outcome.source);
    writeOptional(json, "trashedTo", outcome.trashedTo);
    json.endObject();
}

void writeList(JSONWriter& json, std::string_view key, const std::vector<TidyOutcome>& outcomes) {
    json.key(key);
    json.beginArray();
    for (const TidyOutcome& outcome : outcomes)
        writeOutcome(json, outcome);
    json.endArray();
}

std::string document(std::string_view key, const std::vector<TidyOutcome>& outcomes,
                     std::optional<std::int64_t> inaccessibleCount) {
    return tidyDocument([&](JSONWriter& json) {
        if (inaccessibleCount) {
            json.key("inaccessibleCount");
            json.integer(*inaccessibleCount);
        }
        writeList(json, key, outcomes);
    });
}

std::string lines(const std::vector<TidyOutcome>& outcomes, const TidyStyle& style) {
    TidyTable table({TidyColumn::path, TidyColumn::sentence});
    for (const TidyOutcome& outcome : outcomes)
        table.row({{outcome.source}, {outcome.done, TidyRole::good}});
    std::string text;
    table.write(text, style);
    return text;
}

struct EvictionText {
    TidyOutcome outcome;

    TidyOutcome operator()(const EvictionEvicted& evicted) {
        outcome.done = "freed " + sizeText(evicted.bytesFreed);
        outcome.bytesFreed = evicted.bytesFreed;
        return outcome;
    }
    TidyOutcome operator()(const EvictionRefused& refused) {
        outcome.failure = refused.refusal.explanation();
        return outcome;
    }
    TidyOutcome operator()(const EvictionFailed& failed) {
        outcome.failure = failed.message;
        return outcome;
    }
};

} // namespace

bool TidyOutcomes::hasFailures() const {
    return std::ranges::any_of(all, [](const TidyOutcome& outcome) { return outcome.failure.has_value(); });
}

void TidyOutcomes::actOnEach(const TidyContext& context, const std::vector<std::string>& sources,
                             const std::function<TidyOutcome(const std::string&)>& step) {
    for (const std::string& source : sources) {
        if (!isInterrupted) {
            try {
                context.act([&] { all.push_back(step(source)); });
                continue;
            } catch (const TidyInterrupted&) {
                isInterrupted = true;
            }
        }
        all.push_back({.source = source, .failure = std::string(notTouchedReason)});
    }
}

TidyResult TidyOutcomes::result(const TidyContext& context, const TidyOutputChoices& output,
                                std::string_view closing) const {
    TidyResult result;
    result.exitCode = isInterrupted ? TidyResult::interrupted : hasFailures() ? TidyResult::failed : 0;
    if (output.json) {
        result.standardOutput = document("outcomes", all, inaccessibleCount);
        return result;
    }
    std::vector<TidyOutcome> succeeded;
    for (const TidyOutcome& outcome : all) {
        if (outcome.failure)
            result.standardError += harmless(outcome.source) + ": " + harmless(*outcome.failure) + "\n";
        else
            succeeded.push_back(outcome);
    }
    const TidyStyle style = context.style(output);
    result.standardOutput = lines(succeeded, style);
    if (!succeeded.empty() && !closing.empty())
        result.standardOutput += wrappedText(closing, style.columns, 0);
    return result;
}

void writeOutcomes(JSONWriter& json, const std::vector<TidyOutcome>& outcomes) {
    writeList(json, "outcomes", outcomes);
}

TidyOutcome outcomeOf(const TrashOutcome& moved) {
    TidyOutcome outcome{.source = moved.source.native(), .failure = moved.failure};
    if (moved.trashedTo)
        outcome.trashedTo = moved.trashedTo->native();
    if (!outcome.failure)
        outcome.done = "in the Trash";
    return outcome;
}

TidyTrashSet::TidyTrashSet(const TidyContext& context, const std::vector<std::string>& sources,
                           const std::filesystem::path& home) {
    std::vector<std::filesystem::path> items;
    ProtectedPlaces places(home);
    for (const std::string& source : sources) {
        if (const std::string_view reason = places.reasonToStay(source); !reason.empty())
            reasonsToStay_.try_emplace(source, reason);
        else if (numbers_.try_emplace(source, items.size()).second)
            items.emplace_back(source);
    }
    if (!items.empty())
        moves_ = context.services.planTrash(std::move(items));
}

TidyOutcome TidyTrashSet::move(const std::string& source) {
    if (const auto reason = reasonsToStay_.find(source); reason != reasonsToStay_.end())
        return {.source = source, .failure = reason->second};
    TidyOutcome outcome = outcomeOf(moves_->move(numbers_.at(source)));
    outcome.source = source;
    return outcome;
}

TidyOutcome evicted(const TidyContext& context, const std::string& source,
                    const std::vector<SyncedRoot>& roots) {
    return std::visit(EvictionText{{.source = source}}, context.services.evict(source, roots));
}

TidyOutcome emptied(const TidyContext& context, const std::filesystem::path& home) {
    TidyOutcome outcome{.source = "Trash"};
    const EmptyTrashOutcome result = context.services.emptyTrash(home, context.token());
    if (const auto* failed = std::get_if<EmptyTrashFailed>(&result))
        outcome.failure = failed->message;
    else if (std::holds_alternative<EmptyTrashTimedOut>(result))
        outcome.failure = "It takes too long; it may still go on.";
    else
        outcome.done = "empty";
    return outcome;
}

TidyResult plannedResult(const TidyContext& context, const TidyOutputChoices& output,
                         const std::vector<TidyOutcome>& planned,
                         std::optional<std::int64_t> inaccessibleCount) {
    if (output.json)
        return {.standardOutput = document("planned", planned, inaccessibleCount)};
    if (planned.empty())
        return {.standardOutput = "There is nothing to do.\n"};
    return {.standardOutput = "This would be done:\n" + lines(planned, context.style(output))};
}

std::string questionText(std::string_view question, const std::vector<std::string>& items) {
    constexpr std::size_t shown = 10;
    std::string text;
    for (std::size_t index = 0; index < std::min(shown, items.size()); ++index)
        text += "  " + harmless(items[index]) + "\n";
    if (items.size() > shown)
        text += "  and " + groupedNumber(static_cast<std::int64_t>(items.size() - shown)) + " more\n";
    return text + std::string(question);
}

} // namespace tarnwell
