#include "TarnwellTidyKit/Commands/TrashCommand.hpp"

#include "TarnwellCore/Analysis/SQLiteSidecarFiles.hpp"
#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/OutermostPaths.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <set>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using Verb = TrashRequest::Verb;

/// The items in the order typed, each once; what lies in another one goes with it.
std::vector<std::string> itemsOf(const std::vector<std::string>& typed) {
    std::vector<fs::path> paths;
    std::ranges::transform(typed, std::back_inserter(paths),
                           [](const std::string& word) { return typedPath(word); });
    OutermostPaths outermost;
    for (const fs::path& path : paths)
        outermost.insert(path);
    std::vector<std::string> items;
    std::set<fs::path> seen;
    for (const fs::path& path : paths)
        if (outermost.contains(path) && seen.insert(path).second)
            items.push_back(path.native());
    return items;
}

/// A word that is no path here, but nearly one of the command's.
void expectNoMistypedWord(const std::string& typed) {
    const std::string_view word = nearestOf(typed, TrashRequest::spec.words);
    std::error_code error;
    if (!word.empty() && typed.find('/') == std::string::npos &&
        !fs::exists(fs::symlink_status(typedPath(typed), error)))
        throw TidyUsageError("There is no '" + harmless(typed) + "'. Did you mean trash " +
                             std::string(word) + "?");
}

TidyResult move(const TrashRequest& request, TidyContext& context) {
    if (request.paths.size() == 1)
        expectNoMistypedWord(request.paths.front());
    std::vector<std::string> items = itemsOf(request.paths);
    const auto incomplete = SQLiteSidecarFiles::incompleteFamilyPaths({items.begin(), items.end()});
    TidyOutcomes outcomes;
    for (const fs::path& path : incomplete) {
        std::erase(items, path.native());
        outcomes.all.push_back(
            {.source = path.native(), .failure = std::string(SQLiteSidecarFiles::reviewReason) + "."});
    }
    if (request.act.dryRun) {
        std::vector<TidyOutcome> planned = outcomes.all;
        for (const std::string& item : items)
            planned.push_back({.source = item, .done = "to the Trash"});
        return plannedResult(context, request.output, planned);
    }
    if (!items.empty()) {
        const std::string question = "Move " +
                                     countedText(static_cast<std::int64_t>(items.size()), "item", "items") +
                                     " to the Trash?";
        const auto consent = consentToTrash(context, request.act, questionText(question, items));
        if (consent != TidyContext::Consent::given)
            return TidyContext::withoutConsent(consent);
    }
    TidyTrashSet trash(context, items, context.services.home());
    outcomes.actOnEach(context, items, [&](const std::string& item) { return trash.move(item); });
    return outcomes.result(context, request.output, trashNote);
}

/// One line for each folder of a volume that does not answer.
std::string unansweredText(const std::vector<fs::path>& folders) {
    std::string text;
    for (const fs::path& folder : folders)
        text += harmless(folder.native()) + ": Its volume does not answer.\n";
    return text;
}

/// What an item in the Trash takes.
struct TrashedSize {
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
};

/// Of what lies directly in the Trash folders, by path.
std::map<std::string, TrashedSize, std::less<>> sizesIn(TidyContext& context, const TrashListing& listing) {
    std::map<std::string, TrashedSize, std::less<>> sizes;
    std::set<fs::path> folders;
    for (const TrashedItem& item : listing.items)
        folders.insert(item.location.parent_path());
    const TidyProgress progress(context.surroundings);
    for (const fs::path& folder : folders) {
        if (!TrashFolders::answers(folder))
            continue;
        try {
            const ScanResult scan =
                context.services.scan(folder, {}, progress.handler(), context.token()).get();
            for (const FileNode* node : scan.root->children())
                sizes[(folder / node->name()).native()] = {node->size, node->allocatedSize};
        } catch (const ScanError& error) {
            if (error.kind() == ScanError::Kind::cancelled)
                throw;
        }
    }
    return sizes;
}

void writeItem(JSONWriter& json, const TrashedItem& item, const TrashedSize* size) {
    const auto text = [&](std::string_view key, const std::optional<std::string>& value) {
        json.key(key);
        if (value)
            json.string(*value);
        else
            json.null();
    };
    const auto bytes = [&](std::string_view key, std::int64_t TrashedSize::* member) {
        json.key(key);
        if (size != nullptr)
            json.integer(size->*member);
        else
            json.null();
    };
    json.beginObject();
    bytes("allocated", &TrashedSize::allocatedSize);
    text("original", item.original ? std::optional(item.original->native()) : std::nullopt);
    json.key("path");
    json.string(item.location.native());
    text("set", item.set ? std::optional(item.set->text()) : std::nullopt);
    bytes("size", &TrashedSize::size);
    text("trashedAt", item.trashedAt ? iso8601Text(*item.trashedAt) : std::nullopt);
    json.endObject();
}

TidyResult list(const TrashRequest& request, TidyContext& context) {
    const TrashListing listing = context.services.listTrash();
    const auto sizes = sizesIn(context, listing);
    const auto sizeOf = [&](const TrashedItem& item) {
        const auto found = sizes.find(item.location.native());
        return found == sizes.end() ? nullptr : &found->second;
    };
    const std::string standardError = unansweredText(listing.unanswered);
    if (request.output.json)
        return {.standardOutput = tidyDocument([&](JSONWriter& json) {
                    json.key("items");
                    json.beginArray();
                    for (const TrashedItem& item : listing.items)
                        writeItem(json, item, sizeOf(item));
                    json.endArray();
                }),
                .standardError = standardError};
    if (listing.items.empty())
        return {.standardOutput = "The Trash is empty.\n", .standardError = standardError};
    TidyTable table({TidyColumn::left, TidyColumn::right, TidyColumn::path});
    for (const TrashedItem& item : listing.items) {
        const TrashedSize* const size = sizeOf(item);
        table.row({{item.trashedAt ? dayText(item.trashedAt) : "-", TidyRole::quiet},
                   {size != nullptr ? sizeText(size->size) : "?"},
                   {item.original ? item.original->native() : item.location.native()}});
    }
    std::string text;
    table.write(text, context.style(request.output));
    return {.standardOutput = text, .standardError = standardError};
}

/// What is to go back: the items that were named, by where they were or where they lie, or the last set.
std::vector<TrashedItem> chosenToRestore(const TrashRequest& request, const TrashListing& listing) {
    std::vector<TrashedItem> chosen;
    if (request.paths.empty()) {
        const auto last =
            std::ranges::find_if(listing.items, [](const TrashedItem& item) { return item.set.has_value(); });
        if (last != listing.items.end())
            std::ranges::copy_if(listing.items, std::back_inserter(chosen),
                                 [&](const TrashedItem& item) { return item.set == last->set; });
        return chosen;
    }
    std::map<std::string, std::size_t, std::less<>> byLocation;
    std::map<std::string, std::size_t, std::less<>> byOriginal; // of several that were there, the latest
    for (std::size_t index = 0; index < listing.items.size(); ++index) {
        byLocation.emplace(listing.items[index].location.native(), index);
        if (listing.items[index].original)
            byOriginal.emplace(listing.items[index].original->native(), index);
    }
    // The latest goes back first: a folder is there then before what was taken out of it.
    std::set<std::size_t> indices;
    std::set<fs::path> missing;
    for (const std::string& word : request.paths) {
        const fs::path path = typedPath(word);
        const auto lying = byLocation.find(path.native());
        const auto gone = byOriginal.find(path.native());
        if (lying != byLocation.end())
            indices.insert(lying->second);
        else if (gone != byOriginal.end())
            indices.insert(gone->second);
        else
            missing.insert(path);
    }
    for (const std::size_t index : indices)
        chosen.push_back(listing.items[index]);
    for (const fs::path& path : missing)
        chosen.push_back({.location = path});
    return chosen;
}

TidyOutcome outcomeOfRestored(const RestoreOutcome& restored) {
    TidyOutcome outcome{.source = restored.source.native(), .failure = restored.failure};
    if (restored.restoredTo) {
        outcome.restoredTo = restored.restoredTo->native();
        outcome.done = restored.hasOtherName
                           ? "back as " + *outcome.restoredTo + ", since something else is where it was"
                           : "back at " + *outcome.restoredTo;
    }
    return outcome;
}

TidyResult restore(const TrashRequest& request, TidyContext& context) {
    const TrashListing listing = context.services.listTrash();
    const std::vector<TrashedItem> chosen = chosenToRestore(request, listing);
    std::vector<TidyOutcome> planned;
    std::vector<std::string> locations;
    std::vector<std::string> origins;
    for (const TrashedItem& item : chosen) {
        const std::string origin = item.original ? item.original->native() : item.location.native();
        planned.push_back({.source = item.location.native(),
                           .done = item.original ? "back to " + origin : "nobody noted where it was"});
        locations.push_back(item.location.native());
        origins.push_back(origin);
    }
    TidyResult result;
    if (request.act.dryRun || chosen.empty()) {
        result = plannedResult(context, request.output, planned);
    } else {
        const std::string question = "Put " +
                                     countedText(static_cast<std::int64_t>(chosen.size()), "item", "items") +
                                     " back? Nothing that is there now is replaced.";
        const auto consent = context.consent(request.act, questionText(question, origins));
        if (consent != TidyContext::Consent::given)
            return TidyContext::withoutConsent(consent);
        TidyOutcomes outcomes;
        const TidyProgress line(context.surroundings);
        line.show("Putting back");
        context.act([&] { // a set is put back with one look at the journal
            std::ranges::transform(
                context.services.restore({locations.begin(), locations.end()}, context.token()),
                std::back_inserter(outcomes.all), outcomeOfRestored);
        });
        outcomes.isInterrupted = context.token().isCancelled();
        result = outcomes.result(context, request.output, {});
    }
    result.standardError += unansweredText(listing.unanswered);
    return result;
}

TrashSummary measured(const TidyContext& context, const fs::path& home) {
    const TidyProgress line(context.surroundings);
    line.show("Measuring the Trash");
    return context.services.trashSummary(home);
}

TidyResult size(const TrashRequest& request, TidyContext& context) {
    const TrashSummary summary = measured(context, context.services.home());
    const std::string standardError = unansweredText(summary.unanswered);
    if (!request.output.json)
        return {.standardOutput = countedText(summary.itemCount, "item", "items") + ", " +
                                  sizeText(summary.allocatedSize) + " on the disk; emptying would free " +
                                  sizeText(summary.reclaimableSize) + "\n",
                .standardError = standardError};
    return {.standardOutput = tidyDocument([&](JSONWriter& json) {
                json.key("allocated");
                json.integer(summary.allocatedSize);
                json.key("itemCount");
                json.integer(summary.itemCount);
                json.key("locations");
                json.beginArray();
                for (const fs::path& location : summary.locations)
                    json.string(location.native());
                json.endArray();
                json.key("reclaimable");
                json.integer(summary.reclaimableSize);
                json.key("size");
                json.integer(summary.size);
            }),
            .standardError = standardError};
}

TidyResult empty(const TrashRequest& request, TidyContext& context) {
    const fs::path home = context.services.home();
    const TrashSummary summary = measured(context, home);
    const std::string what =
        countedText(summary.itemCount, "item", "items") + ", " + sizeText(summary.allocatedSize);
    if (request.act.dryRun)
        return plannedResult(context, request.output, {{.source = "Trash", .done = "empty it of " + what}});
    const bool mayHoldSomething = summary.itemCount > 0 || !summary.unanswered.empty();
    if (mayHoldSomething) {
        const auto consent =
            context.consent(request.act, "Empty the Trash (" + what + ")? This cannot be undone.");
        if (consent != TidyContext::Consent::given)
            return TidyContext::withoutConsent(consent);
    }
    TidyOutcomes outcomes;
    outcomes.actOnEach(context, {"Trash"}, [&](const std::string&) {
        TidyOutcome outcome =
            mayHoldSomething ? emptied(context, home) : TidyOutcome{.source = "Trash", .done = "was empty"};
        if (!outcome.failure)
            outcome.bytesFreed = summary.reclaimableSize;
        return outcome;
    });
    return outcomes.result(context, request.output, {});
}

} // namespace

bool isAskedBeforeTrash(TidyContext& context, const TidyActChoices& choices) {
    return !choices.yes && !(context.surroundings.ask && !context.settings().confirmBeforeTrash());
}

TidyContext::Consent consentToTrash(TidyContext& context, const TidyActChoices& choices,
                                    const std::string& question) {
    return isAskedBeforeTrash(context, choices) ? context.consent(choices, question)
                                                : TidyContext::Consent::given;
}

const TidyCommandSpec TrashRequest::spec = {
    .name = "trash",
    .group = "Clear",
    .operands = "PATH... | list | size | restore [PATH...] | empty",
    .summary = "Move to the Trash, see what is there, put it back, empty",
    .details =
        "Moves files and folders to the Trash, one by one, and says of each where it now lies or why it "
        "stayed. "
        "A symbolic link is moved itself. A database and its journal files go together or not at all. The "
        "home folder and folders of the system stay. list shows what is in the Trash and where it was, size "
        "measures it, empty deletes it for good. restore puts back what the last command moved there, or "
        "what is "
        "named by where it was or where it lies; it replaces nothing. A path that is named like one of these "
        "is "
        "written ./list.",
    .words = "list|size|restore|empty",
    .completes = TidyCompletes::paths,
    .shared = static_cast<unsigned>(TidyShared::act),
};

TrashRequest TrashRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(1, SIZE_MAX);
    TrashRequest request{.paths = arguments.operands(), .act = arguments.act(), .output = arguments.output()};
    const std::string& first = request.paths.front();
    request.verb = first == "list"      ? Verb::list
                   : first == "size"    ? Verb::size
                   : first == "restore" ? Verb::restore
                   : first == "empty"   ? Verb::empty
                                        : Verb::move;
    if (request.verb == Verb::restore) {
        request.paths.erase(request.paths.begin());
    } else if (request.verb != Verb::move) {
        if (request.paths.size() > 1)
            throw TidyUsageError("trash " + first + " takes no paths.");
        request.paths.clear();
    }
    return request;
}

TidyResult run(const TrashRequest& request, TidyContext& context) {
    switch (request.verb) {
    case Verb::move:
        return move(request, context);
    case Verb::list:
        return list(request, context);
    case Verb::size:
        return size(request, context);
    case Verb::restore:
        return restore(request, context);
    case Verb::empty:
        return empty(request, context);
    }
    return {};
}

} // namespace tarnwell
