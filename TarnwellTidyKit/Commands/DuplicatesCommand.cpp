#include "TarnwellTidyKit/Commands/DuplicatesCommand.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"
#include "TarnwellTidyKit/Commands/TrashCommand.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
#include <variant>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using Verb = DuplicatesRequest::Verb;

constexpr TidyOptionSpec options[] = {
    {.name = "--min", .value = "SIZE", .help = "Only files from this size on (as the settings have it)"},
    {.name = "--top", .value = "N", .help = "List the N groups that waste most"},
    {.name = "--share", .value = "", .help = "Make copies share their blocks; no file goes away"},
    {.name = "--trash-extras",
     .value = "KEEP",
     .help = "To the Trash, but for the oldest, newest, shortest, first",
     .choices = "oldest|newest|shortest|first"},
};

constexpr std::array<std::pair<std::string_view, DuplicateKeeper>, 4> keepers = {
    {{"oldest", DuplicateKeeper::oldest},
     {"newest", DuplicateKeeper::newest},
     {"shortest", DuplicateKeeper::shortestPath},
     {"first", DuplicateKeeper::firstFolder}}};

struct Found {
    std::vector<ScanResult> scans;
    DuplicateResult duplicates;
};

Found find(const DuplicatesRequest& request, TidyContext& context) {
    Found found;
    std::vector<std::shared_ptr<const FileNode>> roots;
    for (const std::string& folder : request.folders) {
        found.scans.push_back(context.scan(folder, request.scan));
        roots.emplace_back(found.scans.back().root);
    }
    DuplicateOptions duplicateOptions;
    duplicateOptions.minimumSize =
        request.minimumSize.value_or(context.settings().duplicateMinimumSizeBytes());
    if (request.scan.threads)
        duplicateOptions.workerCount = *request.scan.threads;
    const TidyProgress line(context.surroundings);
    found.duplicates =
        context.services
            .findDuplicates(
                std::move(roots), duplicateOptions,
                [&](const DuplicateProgress& progress) {
                    line.show(sizeText(progress.bytesRead) + " of " + sizeText(progress.bytesToRead) +
                              " compared  " + countedText(progress.groupCount, "group", "groups"));
                },
                context.token())
            .get();
    return found;
}

// --- Listing ----------------------------------------------------------------------------------------------

/// What people should know of a member beside its path.
std::string_view noteOf(const DuplicateGroup& group, std::size_t index) {
    for (std::size_t other = 0; other < index; ++other) {
        if (group.areLinks(other, index))
            return "link";
        if (group.areClones(other, index))
            return "shares its blocks already";
    }
    return {};
}

std::size_t shownCount(const DuplicatesRequest& request, const DuplicateResult& result) {
    return std::min(result.groups.size(), static_cast<std::size_t>(request.top.value_or(INT64_MAX)));
}

std::string textOf(const DuplicatesRequest& request, const DuplicateResult& result, const TidyStyle& style) {
    if (result.groups.empty())
        return "There are no duplicates.\n";
    std::string text;
    for (std::size_t index = 0; index < shownCount(request, result); ++index) {
        const DuplicateGroup& group = result.groups[index];
        text += style.painted(sizeText(group.waste) + " wasted", TidyRole::heading) + ", " +
                countedText(static_cast<std::int64_t>(group.files.size()), "file", "files") + " of " +
                sizeText(group.size) + "\n";
        TidyTable table({TidyColumn::path, TidyColumn::left}, 2);
        for (std::size_t member = 0; member < group.members.size(); ++member)
            table.row({{group.members[member].node->path()},
                       {std::string(noteOf(group, member)), TidyRole::quiet}});
        table.write(text, style);
    }
    return text + "\n" + countedText(static_cast<std::int64_t>(result.groups.size()), "group", "groups") +
           ", " + style.painted(sizeText(result.totals.waste), TidyRole::strong) + " wasted\n";
}

std::string documentOf(const DuplicatesRequest& request, const Found& found) {
    const DuplicateResult& result = found.duplicates;
    ScanStats stats;
    for (const ScanResult& scan : found.scans)
        stats.inaccessibleCount += scan.stats.inaccessibleCount;
    return tidyDocument(
        [&](JSONWriter& json) {
            json.key("dropped");
            json.beginArray();
            for (const DroppedFile& file : result.dropped) {
                json.beginObject();
                json.key("path");
                json.string(file.node->path());
                json.key("reason");
                json.string(file.fault.description());
                json.endObject();
            }
            json.endArray();
            json.key("groupCount");
            json.integer(static_cast<std::int64_t>(result.groups.size()));
            json.key("groups");
            json.beginArray();
            for (std::size_t index = 0; index < shownCount(request, result); ++index) {
                const DuplicateGroup& group = result.groups[index];
                json.beginObject();
                json.key("members");
                json.beginArray();
                for (const DuplicateMember& member : group.members) {
                    json.beginObject();
                    json.key("cloneSet");
                    json.integer(static_cast<std::int64_t>(group.files[member.file].cloneSet));
                    json.key("file");
                    json.integer(static_cast<std::int64_t>(member.file));
                    json.key("path");
                    json.string(member.node->path());
                    json.key("reclaimable");
                    json.integer(group.files[member.file].reclaimableSize);
                    json.endObject();
                }
                json.endArray();
                json.key("size");
                json.integer(group.size);
                json.key("waste");
                json.integer(group.waste);
                json.endObject();
            }
            json.endArray();
            writeUnreadable(json, stats);
        },
        [&](JSONWriter& json) {
            json.key("waste");
            json.integer(result.totals.waste);
        });
}

std::string droppedText(const DuplicateResult& result) {
    constexpr std::size_t shown = 5;
    std::string text;
    for (std::size_t index = 0; index < std::min(shown, result.dropped.size()); ++index)
        text += harmless(result.dropped[index].node->path()) + ": " +
                harmless(result.dropped[index].fault.description()) + "\n";
    if (result.dropped.size() > shown)
        text += "and " + groupedNumber(static_cast<std::int64_t>(result.dropped.size() - shown)) +
                " more that could not be compared\n";
    return text;
}

// --- Acting -----------------------------------------------------------------------------------------------

/// The file of a group that stays: never none.
std::size_t keptFile(const DuplicateGroup& group, const DuplicatesRequest& request, const Found& found) {
    const auto rank = [&](std::size_t file) -> std::pair<std::int64_t, std::string> {
        const std::string path = group.firstMember(file).path();
        switch (request.keeper) {
        case DuplicateKeeper::oldest:
            return {group.files[file].version.modified, path};
        case DuplicateKeeper::newest:
            return {-group.files[file].version.modified, path};
        case DuplicateKeeper::shortestPath:
            break;
        case DuplicateKeeper::firstFolder:
            for (std::size_t folder = 0; folder < found.scans.size(); ++folder)
                for (const DuplicateMember& member : group.members)
                    if (member.file == file && liesIn(member.node->path(), found.scans[folder].root->path()))
                        return {static_cast<std::int64_t>(folder), path};
            break;
        }
        std::size_t shortest = SIZE_MAX;
        for (const DuplicateMember& member : group.members)
            if (member.file == file)
                shortest = std::min(shortest, member.node->path().size());
        return {static_cast<std::int64_t>(shortest), path};
    };
    std::size_t kept = 0;
    for (std::size_t file = 1; file < group.files.size(); ++file)
        if (rank(file) < rank(kept))
            kept = file;
    return kept;
}

/// A file that may go, and the one that stays for it.
struct Extra {
    std::string path;
    FileVersion version;
    std::string keptPath;
    FileVersion keptVersion;
    std::int64_t reclaimableSize = 0;
};

std::vector<Extra> extrasOf(const DuplicatesRequest& request, const Found& found) {
    std::vector<Extra> extras;
    for (const DuplicateGroup& group : found.duplicates.groups) {
        const std::size_t kept = keptFile(group, request, found);
        for (const DuplicateMember& member : group.members) {
            const DuplicateFile& file = group.files[member.file];
            const std::size_t set = group.files[kept].cloneSet;
            // What shares everything with the file that stays, or has links elsewhere, would free nothing.
            if (member.file == kept || file.hasUnseenLinks || (set != 0 && file.cloneSet == set))
                continue;
            extras.push_back({member.node->path(), file.version, group.firstMember(kept).path(),
                              group.files[kept].version, file.reclaimableSize});
        }
    }
    return extras;
}

/// To have been moved changes nothing of a file but the time of that.
bool isUntouched(const TidyContext& context, const std::string& path, const FileVersion& version) {
    const std::optional<FileVersion> now = context.services.fileVersion(path);
    return now && now->isSameFile(version) && now->size == version.size && now->modified == version.modified;
}

TidyResult trashExtras(const DuplicatesRequest& request, const Found& found, TidyContext& context) {
    const std::vector<Extra> extras = extrasOf(request, found);
    std::vector<TidyOutcome> planned;
    std::vector<std::string> paths;
    for (const Extra& extra : extras) {
        planned.push_back({.source = extra.path, .done = "to the Trash; stays: " + extra.keptPath});
        paths.push_back(extra.path);
    }
    if (request.act.dryRun || extras.empty())
        return plannedResult(context, request.output, planned);
    const std::string question =
        "Move " + countedText(static_cast<std::int64_t>(extras.size()), "extra copy", "extra copies") +
        " to the Trash? One of each group stays.";
    const auto consent = consentToTrash(context, request.act, questionText(question, paths));
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    TidyTrashSet trash(context, paths, context.services.home());
    TidyOutcomes outcomes;
    std::size_t next = 0;
    outcomes.actOnEach(context, paths, [&](const std::string& path) -> TidyOutcome {
        const Extra& extra = extras[next++];
        if (!isUntouched(context, extra.keptPath, extra.keptVersion))
            return {.source = path,
                    .failure = "The copy that was to stay has changed or gone: " + extra.keptPath};
        if (!isUntouched(context, path, extra.version))
            return {.source = path, .failure = "It has changed since it was compared."};
        return trash.move(path);
    });
    return outcomes.result(context, request.output, trashNote);
}

struct SharingText {
    TidyOutcome outcome;

    TidyOutcome operator()(const SharingDone& done) {
        outcome.bytesFreed = done.bytesFreed;
        outcome.done = "shares its blocks, freed " + sizeText(done.bytesFreed);
        return outcome;
    }
    TidyOutcome operator()(const SharingRefused& refused) {
        outcome.bytesFreed = refused.bytesFreed;
        outcome.failure = refused.refusal.explanation();
        return outcome;
    }
    TidyOutcome operator()(const SharingFailed& failed) {
        outcome.bytesFreed = failed.bytesFreed;
        outcome.failure = failed.message;
        return outcome;
    }
};

TidyResult share(const DuplicatesRequest& request, const Found& found, TidyContext& context) {
    std::vector<SharingRequest> groups;
    std::vector<TidyOutcome> planned;
    std::vector<std::string> paths;
    for (const DuplicateGroup& group : found.duplicates.groups) {
        if (group.waste == 0)
            continue;
        groups.push_back(SharingRequest::of(group));
        const auto& items = groups.back().items;
        for (auto item = items.begin() + 1; item != items.end(); ++item) {
            planned.push_back({.source = item->path, .done = "shares the blocks of " + items.front().path});
            paths.push_back(item->path);
        }
    }
    if (request.act.dryRun || paths.empty())
        return plannedResult(context, request.output, planned);
    const std::string question = "Make " +
                                 countedText(static_cast<std::int64_t>(paths.size()), "copy", "copies") +
                                 " share blocks with the first of each group? No file goes away.";
    const auto consent = context.consent(request.act, questionText(question, paths));
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    TidyOutcomes outcomes;
    const TidyProgress line(context.surroundings);
    for (const SharingRequest& group : groups) {
        try {
            context.act([&] {
                line.show("Sharing " + group.items.front().path);
                for (const SharingOutcome& outcome :
                     context.services.shareBlocks(group, context.token()).get())
                    outcomes.all.push_back(
                        std::visit(SharingText{{.source = urlOf(outcome).native()}}, outcome));
            });
        } catch (const TidyInterrupted&) {
            break;
        }
    }
    line.clear();
    outcomes.isInterrupted = context.token().isCancelled();
    return outcomes.result(context, request.output, {});
}

} // namespace

const TidyCommandSpec DuplicatesRequest::spec = {
    .name = "duplicates",
    .group = "Look",
    .operands = "FOLDER...",
    .summary = "Files of equal contents, and what they waste",
    .details =
        "Compares files by their contents and lists them in groups, those that waste most first; links and "
        "clones "
        "waste nothing. With --share, on file systems that can, copies come to share their blocks: the space "
        "is "
        "freed and every file stays. With --trash-extras, all but one of each group go to the Trash; the one "
        "that stays is the oldest, the newest, the one with the shortest path, or the one in the folder that "
        "is "
        "named first.",
    .completes = TidyCompletes::folders,
    .shared = TidyShared::scan | TidyShared::act,
    .options = options,
};

DuplicatesRequest DuplicatesRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(1, SIZE_MAX);
    DuplicatesRequest request{.folders = arguments.operands(),
                              .minimumSize = arguments.size("--min"),
                              .top = arguments.count("--top"),
                              .scan = arguments.scan(),
                              .act = arguments.act(),
                              .output = arguments.output()};
    const auto keeper = arguments.value("--trash-extras");
    if (keeper && arguments.has("--share"))
        throw TidyUsageError("--share and --trash-extras do not go together.");
    if (arguments.has("--share"))
        request.verb = Verb::share;
    if (keeper) {
        request.verb = Verb::trashExtras;
        request.keeper =
            std::ranges::find(keepers, *keeper, [](const auto& row) { return row.first; })->second;
    }
    return request;
}

TidyResult run(const DuplicatesRequest& request, TidyContext& context) {
    Found found = find(request, context);
    TidyResult result;
    switch (request.verb) {
    case Verb::list:
        if (request.output.json)
            result.standardOutput = documentOf(request, found);
        else
            result = {.standardOutput = textOf(request, found.duplicates, context.style(request.output)),
                      .standardError = droppedText(found.duplicates)};
        break;
    case Verb::share:
        result = share(request, found, context);
        break;
    case Verb::trashExtras:
        result = trashExtras(request, found, context);
        break;
    }
    for (ScanResult& scan : found.scans) {
        if (!request.output.json)
            result.standardError += context.unreadableText(scan, context.style(request.output));
        context.keep(std::move(scan));
    }
    return result;
}

} // namespace tarnwell
