#include "TarnwellTidyKit/Commands/TrashCommand.hpp"

#include "TarnwellCore/Analysis/SQLiteSidecarFiles.hpp"
#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"

#include <algorithm>
#include <iterator>
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
    std::vector<std::string> items;
    for (const fs::path& path : paths) {
        const bool goesAlong = std::ranges::any_of(
            paths, [&](const fs::path& other) { return other != path && liesIn(path, other); });
        if (!goesAlong && std::ranges::find(items, path.native()) == items.end())
            items.push_back(path.native());
    }
    return items;
}

TidyResult move(const TrashRequest& request, TidyContext& context) {
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
    const fs::path home = context.services.home();
    outcomes.actOnEach(context, items, [&](const std::string& item) { return trashed(context, item, home); });
    return outcomes.result(context, request.output, trashNote);
}

struct Trashed {
    fs::path path;
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
};

/// One line for each folder of a volume that does not answer.
std::string unansweredText(const std::vector<fs::path>& folders) {
    std::string text;
    for (const fs::path& folder : folders)
        text += harmless(folder.native()) + ": Its volume does not answer.\n";
    return text;
}

/// What lies directly in the Trash folders, largest first in each.
std::vector<Trashed> contents(TidyContext& context, std::vector<fs::path>& unanswered) {
    std::vector<Trashed> items;
    for (const fs::path& folder : context.services.trashFolders(context.services.home())) {
        if (!TrashFolders::answers(folder)) {
            unanswered.push_back(folder);
            continue;
        }
        std::error_code error;
        if (!fs::is_directory(folder, error))
            continue;
        const ScanResult scan = context.services.scan(folder, {}, nullptr, context.token()).get();
        for (const FileNode* node : scan.root->children())
            if (node->name() != ".DS_Store")
                items.push_back({node->url(), node->size, node->allocatedSize});
    }
    return items;
}

TidyResult list(const TrashRequest& request, TidyContext& context) {
    std::vector<fs::path> unanswered;
    const std::vector<Trashed> items = contents(context, unanswered);
    const std::string standardError = unansweredText(unanswered);
    if (request.output.json)
        return {.standardOutput = tidyDocument([&](JSONWriter& json) {
                    json.key("items");
                    json.beginArray();
                    for (const Trashed& item : items) {
                        json.beginObject();
                        json.key("allocated");
                        json.integer(item.allocatedSize);
                        json.key("path");
                        json.string(item.path.native());
                        json.key("size");
                        json.integer(item.size);
                        json.endObject();
                    }
                    json.endArray();
                }),
                .standardError = standardError};
    if (items.empty())
        return {.standardOutput = "The Trash is empty.\n", .standardError = standardError};
    TidyTable table({TidyColumn::right, TidyColumn::path});
    for (const Trashed& item : items)
        table.row({{sizeText(item.size)}, {item.path.native()}});
    std::string text;
    table.write(text, context.style(request.output));
    return {.standardOutput = text, .standardError = standardError};
}

TidyResult size(const TrashRequest& request, TidyContext& context) {
    const TrashSummary summary = context.services.trashSummary(context.services.home());
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
    const TrashSummary summary = context.services.trashSummary(home);
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

TidyContext::Consent consentToTrash(TidyContext& context, const TidyActChoices& choices,
                                    const std::string& question) {
    if (context.surroundings.ask && !context.settings().confirmBeforeTrash())
        return TidyContext::Consent::given;
    return context.consent(choices, question);
}

const TidyCommandSpec TrashRequest::spec = {
    .name = "trash",
    .group = "Clear",
    .operands = "PATH... | list | size | empty",
    .summary = "Move to the Trash, see what is there, empty it",
    .details =
        "Moves files and folders to the Trash, one by one, and says of each where it now lies or why it "
        "stayed. "
        "A symbolic link is moved itself. A database and its journal files go together or not at all. The "
        "home folder and folders of the system stay. list shows what is in the Trash, size measures it, "
        "empty "
        "deletes it for good. A path that is named like one of these is written ./list.",
    .words = "list|size|empty",
    .completes = TidyCompletes::paths,
    .shared = static_cast<unsigned>(TidyShared::act),
};

TrashRequest TrashRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(1, SIZE_MAX);
    TrashRequest request{.paths = arguments.operands(), .act = arguments.act(), .output = arguments.output()};
    const std::string& first = request.paths.front();
    request.verb = first == "list"    ? Verb::list
                   : first == "size"  ? Verb::size
                   : first == "empty" ? Verb::empty
                                      : Verb::move;
    if (request.verb != Verb::move) {
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
    case Verb::empty:
        return empty(request, context);
    }
    return {};
}

} // namespace tarnwell
