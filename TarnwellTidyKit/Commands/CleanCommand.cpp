#include "TarnwellTidyKit/Commands/CleanCommand.hpp"

#include "TarnwellCore/Analysis/SpaceSaverCatalogue.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/Trim.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"
#include "TarnwellTidyKit/Commands/TrashCommand.hpp"

#include <algorithm>
#include <iterator>
#include <span>
#include <stdexcept>
#include <variant>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr TidyOptionSpec options[] = {
    {.name = "--safe", .value = "", .help = "Clear everything that is safe to remove"},
    findingsHomeOption,
    findingsQuickOption,
};

/// Whether a finding comes from the catalogue of known places, for which nothing else need be read.
bool isKnownPlace(const std::string& id) {
    return std::ranges::any_of(SpaceSaverCatalogue::directoryRules(),
                               [&](const auto& rule) { return rawValue(rule.kind) == id; }) ||
           id == rawValue(SpaceSaverKind::trash);
}

/// What the request names, in the order of the findings. Throws for an ID that no finding has.
std::vector<SpaceSaverFinding> chosen(const CleanRequest& request, const FoundPlaces& found) {
    std::vector<std::string_view> known;
    std::ranges::transform(found.findings, std::back_inserter(known), &SpaceSaverFinding::id);
    for (const std::string& id : request.ids)
        if (std::ranges::find(known, id) == known.end()) {
            const std::string_view nearest = nearestWord(id, known);
            throw std::runtime_error("There is no finding '" + id + "' now." +
                                     (nearest.empty() ? std::string(" See: tarnwell-tidy findings")
                                                      : " Did you mean " + std::string(nearest) + "?"));
        }
    std::vector<SpaceSaverFinding> findings;
    std::ranges::copy_if(found.findings, std::back_inserter(findings), [&](const SpaceSaverFinding& finding) {
        return std::ranges::find(request.ids, finding.id) != request.ids.end() ||
               (request.allSafe && finding.safety == CleanupSafety::safe);
    });
    return findings;
}

std::vector<std::string> words(const std::string& commandLine) {
    std::vector<std::string> all(1);
    for (const char character : commandLine) {
        if (character != ' ')
            all.back() += character;
        else if (!all.back().empty())
            all.emplace_back();
    }
    if (all.back().empty())
        all.pop_back();
    return all;
}

/// Does what one finding offers; an outcome for each path or command.
struct Clearing {
    const SpaceSaverFinding& finding;
    const fs::path& home;
    TidyContext& context;
    TidyOutcomes& outcomes;
    TidyTrashSet& trash;

    void operator()(const SpaceSaverActions::Trash&) const {
        each(paths(), [&](const std::string& path) { return trash.move(path); });
    }
    void operator()(const SpaceSaverActions::Evict&) const {
        const auto roots = context.services.syncedRoots(home);
        each(paths(), [&](const std::string& path) { return evicted(context, path, roots); });
    }
    void operator()(const SpaceSaverActions::EmptyTrash&) const {
        each({"Trash"}, [&](const std::string&) { return emptied(context, home); });
    }
    void operator()(const SpaceSaverActions::OpenLocation&) const {
        each(paths(), [&](const std::string& path) {
            TidyOutcome outcome{.source = path};
            if (context.services.reveal(path))
                outcome.done = "opened";
            else
                outcome.failure = "There is no desktop here to open it on. Look through it yourself.";
            return outcome;
        });
    }
    void operator()(const SpaceSaverActions::RunCommand& command) const {
        each({command.commandLine}, [&](const std::string& line) {
            TidyOutcome outcome{.source = line};
            const auto result = context.services.runTool(words(line));
            if (!result)
                outcome.failure = words(line).front() + " could not be run; is it installed?";
            else if (!result->succeeded())
                outcome.failure = failureOf(*result);
            else
                outcome.done = "done";
            return outcome;
        });
    }

private:
    std::vector<std::string> paths() const {
        std::vector<std::string> all;
        std::ranges::transform(finding.paths, std::back_inserter(all),
                               [](const fs::path& path) { return path.native(); });
        return all;
    }
    static std::string failureOf(const CommandResult& result) {
        const std::string_view message = trimmed(result.standardError);
        return message.empty() ? "It ended with code " + std::to_string(result.exitCode) + "."
                               : std::string(message);
    }
    void each(const std::vector<std::string>& sources,
              const std::function<TidyOutcome(const std::string&)>& step) const {
        outcomes.actOnEach(context, sources, [&](const std::string& source) {
            TidyOutcome outcome = step(source);
            outcome.finding = finding.id;
            return outcome;
        });
    }
};

/// What of all findings goes to the Trash, to be restored as one.
TidyTrashSet trashSetOf(std::span<const SpaceSaverFinding> findings, const fs::path& home,
                        const TidyContext& context) {
    std::vector<std::string> paths;
    for (const SpaceSaverFinding& finding : findings)
        if (std::holds_alternative<SpaceSaverActions::Trash>(finding.action))
            std::ranges::transform(finding.paths, std::back_inserter(paths),
                                   [](const fs::path& path) { return path.native(); });
    return {context, paths, home};
}

std::vector<TidyOutcome> plan(const std::vector<SpaceSaverFinding>& findings) {
    std::vector<TidyOutcome> planned;
    for (const SpaceSaverFinding& finding : findings) {
        const std::string how = std::string(displayName(finding.safety)) + ": " + actionText(finding.action);
        if (const auto* command = std::get_if<SpaceSaverActions::RunCommand>(&finding.action))
            planned.push_back({.source = command->commandLine, .done = how, .finding = finding.id});
        else
            for (const fs::path& path : finding.paths)
                planned.push_back({.source = path.native(), .done = how, .finding = finding.id});
    }
    return planned;
}

/// What is said of items whose paths a finding does not list.
std::string furtherText(const std::vector<SpaceSaverFinding>& findings) {
    std::string text;
    for (const SpaceSaverFinding& finding : findings)
        if (finding.furtherPathCount > 0)
            text += harmless(finding.title) + ": " +
                    countedText(finding.furtherPathCount, "further item is", "further items are") +
                    " left for the next time.\n";
    return text;
}

} // namespace

void clearFinding(const SpaceSaverFinding& finding, const fs::path& home, TidyContext& context,
                  TidyOutcomes& outcomes) {
    TidyTrashSet trash = trashSetOf({&finding, 1}, home, context);
    std::visit(Clearing{finding, home, context, outcomes, trash}, finding.action);
}

const TidyCommandSpec CleanRequest::spec = {
    .name = "clean",
    .group = "Clear",
    .operands = "ID...",
    .summary = "Do what findings offer",
    .details =
        "Moves what belongs to a finding to the Trash, runs the tool that it belongs to, or opens the place, "
        "as "
        "findings says. With --safe, everything that is safe to remove; anything else only goes when it is "
        "named by its ID.",
    .shared = TidyShared::scan | TidyShared::act,
    .options = options,
};

CleanRequest CleanRequest::read(const TidyArguments& arguments) {
    CleanRequest request{.ids = arguments.operands(),
                         .allSafe = arguments.has("--safe"),
                         .place = {.home = arguments.value("--home"), .isQuick = arguments.has("--quick")},
                         .scan = arguments.scan(),
                         .act = arguments.act(),
                         .output = arguments.output()};
    if (!request.allSafe)
        arguments.expectOperands(1, SIZE_MAX);
    if (!request.allSafe && std::ranges::all_of(request.ids, isKnownPlace))
        request.place.isQuick = true;
    return request;
}

TidyResult run(const CleanRequest& request, TidyContext& context) {
    FoundPlaces found = findPlaces(request.place, request.scan, context);
    const std::vector<SpaceSaverFinding> findings = chosen(request, found);
    std::optional<std::int64_t> inaccessibleCount;
    std::string remarks = furtherText(findings);
    if (found.scan) {
        inaccessibleCount = found.scan->stats.inaccessibleCount;
        if (!request.output.json)
            remarks += context.unreadableText(*found.scan, context.style(request.output));
        context.keep(*std::move(found.scan));
    }
    const std::vector<TidyOutcome> planned = plan(findings);
    if (request.act.dryRun || planned.empty()) {
        TidyResult result = plannedResult(context, request.output, planned, inaccessibleCount);
        result.standardError += remarks;
        return result;
    }
    std::vector<std::string> lines;
    for (const SpaceSaverFinding& finding : findings)
        lines.push_back(finding.title + ", " +
                        (finding.sizeIsKnown ? sizeText(finding.reclaimableSize) : "size not known") + ": " +
                        actionText(finding.action) + " (" + std::string(displayName(finding.safety)) + ")");
    const std::string question = questionText("Do this?", lines);
    const bool isTrashOnly = std::ranges::all_of(findings, [](const SpaceSaverFinding& finding) {
        return std::holds_alternative<SpaceSaverActions::Trash>(finding.action);
    });
    const auto consent =
        isTrashOnly ? consentToTrash(context, request.act, question) : context.consent(request.act, question);
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    TidyOutcomes outcomes{.inaccessibleCount = inaccessibleCount};
    TidyTrashSet trash = trashSetOf(findings, found.home, context);
    for (const SpaceSaverFinding& finding : findings)
        std::visit(Clearing{finding, found.home, context, outcomes, trash}, finding.action);
    const bool hasTrashed = std::ranges::any_of(
        outcomes.all, [](const TidyOutcome& outcome) { return outcome.done == "in the Trash"; });
    TidyResult result = outcomes.result(context, request.output, hasTrashed ? trashNote : std::string_view());
    result.standardError += remarks;
    return result;
}

} // namespace tarnwell
