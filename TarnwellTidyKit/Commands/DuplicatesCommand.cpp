#include "TarnwellTidyKit/Commands/DuplicatesCommand.hpp"

#include "TarnwellCore/Scanning/PathOrder.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"
#include "TarnwellTidyKit/Commands/TrashCommand.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <set>
#include <span>
#include <utility>
#include <variant>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using Verb = DuplicatesRequest::Verb;

constexpr TidyOptionSpec options[] = {
    {.name = "--min", .value = "SIZE", .help = "Only files from this size on (as the settings have it)"},
    {.name = "--top", .value = "N", .help = "Only the N groups that waste most"},
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

    std::int64_t inaccessibleCount() const {
        std::int64_t count = 0;
        for (const ScanResult& scan : scans)
            count += scan.stats.inaccessibleCount;
        return count;
    }
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
class MemberNotes {
public:
    /// To be asked of each member in turn.
    std::string_view next(const DuplicateGroup& group, const DuplicateMember& member) {
        const std::size_t set = group.files[member.file].cloneSet;
        const bool isLink = !files_.insert(member.file).second;
        const bool isClone = set != 0 && !cloneSets_.insert(set).second;
        return isLink ? "link" : isClone ? "shares its blocks already" : std::string_view();
    }

private:
    std::set<std::size_t> files_;
    std::set<std::size_t> cloneSets_;
};

/// Those that are listed, or acted on.
std::span<const DuplicateGroup> shownGroups(const DuplicatesRequest& request, const DuplicateResult& result) {
    const auto most = static_cast<std::size_t>(request.top.value_or(INT64_MAX));
    return std::span(result.groups).first(std::min(result.groups.size(), most));
}

std::string textOf(const DuplicatesRequest& request, const DuplicateResult& result, const TidyStyle& style,
                   TextOutput output) {
    if (result.groups.empty())
        return "There are no duplicates.\n";
    for (const DuplicateGroup& group : shownGroups(request, result)) {
        output.text() += style.painted(sizeText(group.waste) + " wasted", TidyRole::heading) + ", " +
                         countedText(static_cast<std::int64_t>(group.files.size()), "file", "files") +
                         " of " + sizeText(group.size) + "\n";
        TidyTable table({TidyColumn::path, TidyColumn::left}, 2);
        MemberNotes notes;
        for (const DuplicateMember& member : group.members)
            table.row({{.text = {}, .node = member.node},
                       {std::string(notes.next(group, member)), TidyRole::quiet}});
        table.write(output, style);
    }
    output.text() += "\n" + countedText(static_cast<std::int64_t>(result.groups.size()), "group", "groups") +
                     ", " + style.painted(sizeText(result.totals.waste), TidyRole::strong) + " wasted\n";
    return output.finish();
}

std::string documentOf(const DuplicatesRequest& request, const Found& found, TextOutput output) {
    const DuplicateResult& result = found.duplicates;
    return tidyDocument(
        output,
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
                output.endPart();
            }
            json.endArray();
            json.key("groupCount");
            json.integer(static_cast<std::int64_t>(result.groups.size()));
            json.key("groups");
            json.beginArray();
            for (const DuplicateGroup& group : shownGroups(request, result)) {
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
                    output.endPart();
                }
                json.endArray();
                json.key("size");
                json.integer(group.size);
                json.key("waste");
                json.integer(group.waste);
                json.endObject();
            }
            json.endArray();
            json.key("inaccessibleCount");
            json.integer(found.inaccessibleCount());
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

/// The file of a group that stays: never none. Of equal ones the first, which has the smallest path.
std::size_t keptFile(const DuplicateGroup& group, const DuplicatesRequest& request, const Found& found) {
    std::vector<std::int64_t> ranks(group.files.size(), INT64_MAX);
    if (request.keeper == DuplicateKeeper::oldest || request.keeper == DuplicateKeeper::newest) {
        for (std::size_t file = 0; file < ranks.size(); ++file) {
            const std::int64_t modified = group.files[file].version.modified;
            ranks[file] = request.keeper == DuplicateKeeper::oldest ? modified : -modified;
        }
    } else {
        for (const DuplicateMember& member : group.members) {
            std::int64_t rank = INT64_MAX;
            if (request.keeper == DuplicateKeeper::shortestPath) {
                rank = static_cast<std::int64_t>(pathLength(*member.node));
            } else {
                const fs::path path = member.node->path();
                for (std::size_t folder = found.scans.size(); folder-- > 0;)
                    if (liesIn(path, found.scans[folder].root->path()))
                        rank = static_cast<std::int64_t>(folder);
            }
            ranks[member.file] = std::min(ranks[member.file], rank);
        }
    }
    return static_cast<std::size_t>(std::ranges::min_element(ranks) - ranks.begin());
}

/// A file that may go, and the one that stays for it.
struct Extra {
    const FileNode* node;
    FileVersion version;
    const FileNode* kept;
    FileVersion keptVersion;
};

struct Extras {
    std::vector<Extra> all;
    /// What is beyond the budget of paths, and stays for the next time.
    std::int64_t furtherCount = 0;
};

Extras extrasOf(const DuplicatesRequest& request, const Found& found) {
    Extras extras;
    PathBudget budget;
    for (const DuplicateGroup& group : shownGroups(request, found.duplicates)) {
        const std::size_t kept = keptFile(group, request, found);
        const FileNode* keptNode = &group.firstMember(kept);
        const std::size_t set = group.files[kept].cloneSet;
        for (const DuplicateMember& member : group.members) {
            const DuplicateFile& file = group.files[member.file];
            // What shares everything with the file that stays, or has links elsewhere, would free nothing.
            if (member.file == kept || file.hasUnseenLinks || (set != 0 && file.cloneSet == set))
                continue;
            if (budget.take(*member.node) && budget.take(*keptNode))
                extras.all.push_back({member.node, file.version, keptNode, group.files[kept].version});
            else
                ++extras.furtherCount;
        }
    }
    return extras;
}

TidyResult withFurther(TidyResult result, std::int64_t furtherCount) {
    if (furtherCount > 0)
        result.standardError +=
            countedText(furtherCount, "further copy is", "further copies are") + " left for the next time.\n";
    return result;
}

/// To have been moved changes nothing of a file but the time of that.
bool isUntouched(const TidyContext& context, const std::string& path, const FileVersion& version) {
    const std::optional<FileVersion> now = context.services.fileVersion(path);
    return now && now->isSameFile(version) && now->size == version.size && now->modified == version.modified;
}

TidyResult trashExtras(const DuplicatesRequest& request, const Found& found, TidyContext& context) {
    const auto [extras, furtherCount] = extrasOf(request, found);
    std::vector<TidyOutcome> planned;
    std::vector<std::string> paths;
    for (const Extra& extra : extras) {
        paths.push_back(extra.node->path());
        if (request.act.dryRun)
            planned.push_back({.source = paths.back(), .done = "to the Trash; stays: " + extra.kept->path()});
    }
    if (request.act.dryRun || extras.empty())
        return withFurther(plannedResult(context, request.output, planned, found.inaccessibleCount()),
                           furtherCount);
    const std::string question =
        "Move " + countedText(static_cast<std::int64_t>(extras.size()), "extra copy", "extra copies") +
        " to the Trash? One of each group stays.";
    const auto consent = consentToTrash(context, request.act, questionText(question, paths));
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    TidyTrashSet trash(context, paths, context.services.home());
    TidyOutcomes outcomes{.inaccessibleCount = found.inaccessibleCount()};
    std::size_t next = 0;
    outcomes.actOnEach(context, paths, [&](const std::string& path) -> TidyOutcome {
        const Extra& extra = extras[next++];
        const std::string kept = extra.kept->path();
        if (!isUntouched(context, kept, extra.keptVersion))
            return {.source = path, .failure = "The copy that was to stay has changed or gone: " + kept};
        if (!isUntouched(context, path, extra.version))
            return {.source = path, .failure = "It has changed since it was compared."};
        return trash.move(path);
    });
    return withFurther(outcomes.result(context, request.output, trashNote), furtherCount);
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
    std::int64_t furtherCount = 0;
    PathBudget budget;
    for (const DuplicateGroup& group : shownGroups(request, found.duplicates)) {
        if (group.waste == 0)
            continue;
        SharingRequest sharing = SharingRequest::of(group, budget);
        furtherCount +=
            static_cast<std::int64_t>(group.files.size() - std::max<std::size_t>(sharing.items.size(), 1));
        if (sharing.items.size() < 2)
            continue;
        const std::string& first = sharing.items.front().path;
        for (auto item = sharing.items.begin() + 1; item != sharing.items.end(); ++item) {
            paths.push_back(item->path);
            if (request.act.dryRun)
                planned.push_back({.source = item->path, .done = "shares the blocks of " + first});
        }
        groups.push_back(std::move(sharing));
    }
    if (request.act.dryRun || paths.empty())
        return withFurther(plannedResult(context, request.output, planned, found.inaccessibleCount()),
                           furtherCount);
    const std::string question = "Make " +
                                 countedText(static_cast<std::int64_t>(paths.size()), "copy", "copies") +
                                 " share blocks with the first of each group? No file goes away.";
    const auto consent = context.consent(request.act, questionText(question, paths));
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    TidyOutcomes outcomes{.inaccessibleCount = found.inaccessibleCount()};
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
    return withFurther(outcomes.result(context, request.output, {}), furtherCount);
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
            result.standardOutput = documentOf(request, found, context.output());
        else
            result = {.standardOutput =
                          textOf(request, found.duplicates, context.style(request.output), context.output()),
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
