#include "TarnwellTidyKit/Commands/FindingsCommand.hpp"

#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/OutermostPaths.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"

#include <algorithm>
#include <array>
#include <utility>
#include <variant>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr TidyOptionSpec options[] = {findingsHomeOption, findingsQuickOption};

constexpr std::array<std::pair<SpaceSaverGroup, std::string_view>, 4> groups = {
    {{SpaceSaverGroup::developer, "Developer"},
     {SpaceSaverGroup::system, "System"},
     {SpaceSaverGroup::backups, "Backups"},
     {SpaceSaverGroup::files, "Files"}}};

std::string textOf(const FoundPlaces& found, const TidyStyle& style, const TidyContext& context) {
    if (found.findings.empty())
        return "Nothing worth clearing was found.\n";
    std::string text;
    for (const auto& [listed, heading] : groups) {
        using enum TidyColumn;
        TidyTable table({right, left, left, sentence, left}, 2);
        for (const SpaceSaverFinding& finding : found.findings) {
            if (group(finding.kind) != listed)
                continue;
            table.row({{finding.sizeIsKnown ? sizeText(finding.reclaimableSize) : "not known"},
                       {std::string(displayName(finding.safety)), roleOf(finding.safety)},
                       {finding.title, TidyRole::strong},
                       {actionText(finding.action), TidyRole::quiet},
                       {finding.id}});
        }
        if (table.isEmpty())
            continue;
        text += (text.empty() ? "" : "\n") + style.painted(heading, TidyRole::heading) + "\n";
        table.write(text, style);
    }
    text += "\nClearing all of it would free at least " +
            style.painted(sizeText(freeableBytes(found.findings)), TidyRole::strong) + ".\n";
    text += wrappedText(
        "Clear what you like with: tarnwell-tidy clean ID. What is safe to remove is made again when "
        "it is needed; tarnwell-tidy clean --safe clears all of that.",
        style.columns, 0);
    const std::string unreadable = found.scan ? context.unreadableText(*found.scan, style) : std::string();
    return unreadable.empty() ? text : text + "\n" + unreadable;
}

void writeAction(JSONWriter& json, const SpaceSaverAction& action) {
    json.beginObject();
    if (const auto* command = std::get_if<SpaceSaverActions::RunCommand>(&action)) {
        json.key("commandLine");
        json.string(command->commandLine);
    }
    json.key("name");
    json.string(actionName(action));
    json.endObject();
}

void writeFinding(JSONWriter& json, const SpaceSaverFinding& finding) {
    json.beginObject();
    json.key("action");
    writeAction(json, finding.action);
    json.key("allocated");
    json.integer(finding.allocatedSize);
    json.key("category");
    json.string(displayName(finding.category));
    json.key("detail");
    json.string(finding.subtitle);
    json.key("explanation");
    json.string(finding.explanation);
    json.key("furtherPathCount");
    json.integer(finding.furtherPathCount);
    json.key("id");
    json.string(finding.id);
    json.key("itemCount");
    json.integer(finding.itemCount);
    json.key("kind");
    json.string(rawValue(finding.kind));
    json.key("paths");
    json.beginArray();
    for (const fs::path& path : finding.paths)
        json.string(path.native());
    json.endArray();
    json.key("reclaimable");
    json.integer(finding.reclaimableSize);
    json.key("safety");
    json.string(rawValue(finding.safety));
    json.key("size");
    json.integer(finding.size);
    json.key("sizeIsKnown");
    json.boolean(finding.sizeIsKnown);
    json.key("title");
    json.string(finding.title);
    json.endObject();
}

struct ActionName {
    std::string_view operator()(const SpaceSaverActions::RunCommand&) const { return "runCommand"; }
    std::string_view operator()(const SpaceSaverActions::Trash&) const { return "trash"; }
    std::string_view operator()(const SpaceSaverActions::OpenLocation&) const { return "openLocation"; }
    std::string_view operator()(const SpaceSaverActions::EmptyTrash&) const { return "emptyTrash"; }
    std::string_view operator()(const SpaceSaverActions::Evict&) const { return "evict"; }
};

struct ActionText {
    std::string operator()(const SpaceSaverActions::RunCommand& command) const {
        return "runs " + command.commandLine;
    }
    std::string operator()(const SpaceSaverActions::Trash&) const { return "moves it to the Trash"; }
    std::string operator()(const SpaceSaverActions::OpenLocation&) const { return "opens the place"; }
    std::string operator()(const SpaceSaverActions::EmptyTrash&) const { return "empties the Trash"; }
    std::string operator()(const SpaceSaverActions::Evict&) const { return "frees local copies"; }
};

} // namespace

std::string_view actionName(const SpaceSaverAction& action) {
    return std::visit(ActionName{}, action);
}

std::string actionText(const SpaceSaverAction& action) {
    return std::visit(ActionText{}, action);
}

TidyRole roleOf(CleanupSafety safety) {
    switch (safety) {
    case CleanupSafety::safe:
        return TidyRole::good;
    case CleanupSafety::reviewNeeded:
        return TidyRole::warning;
    case CleanupSafety::caution:
        return TidyRole::danger;
    }
    return TidyRole::danger;
}

std::int64_t freeableBytes(std::span<const SpaceSaverFinding> findings) {
    std::int64_t bytes = 0;
    OutermostPaths counted;
    for (const SpaceSaverFinding& finding : findings) {
        // What is not listed may be part of another finding.
        if (finding.furtherPathCount > 0 || std::ranges::any_of(finding.paths, [&](const fs::path& path) {
                return counted.sharesWith(path);
            }))
            continue;
        addChecked(bytes, finding.reclaimableSize);
        for (const fs::path& path : finding.paths)
            counted.insert(path);
    }
    return bytes;
}

FoundPlaces findPlaces(const FindingsPlace& place, const TidyScanChoices& choices, TidyContext& context) {
    FoundPlaces found;
    found.home = place.home ? typedPath(*place.home) : context.services.home();
    SpaceSaverProbe::Request request;
    request.now = context.services.now();
    request.rules = context.settings().cleanupRules().value_or(CleanupRule::presets());
    request.largeFileThreshold = std::max<std::int64_t>(context.settings().largeFileThresholdBytes(), 0);
    if (!place.isQuick) {
        found.scan = context.scan(found.home, choices);
        request.scanResult = found.scan;
        found.home = found.scan->root->url();
    }
    const TidyProgress line(context.surroundings);
    line.show("Looking at known places");
    found.findings = context.services.findings(found.home, std::move(request), context.token()).get();
    return found;
}

const TidyCommandSpec FindingsRequest::spec = {
    .name = "findings",
    .group = "Look",
    .operands = "",
    .summary = "Where space piles up at home, and what can be done",
    .details =
        "Looks through your home folder for caches, build products, old downloads, large files, the Trash "
        "and "
        "what your cleanup rules match. Changes nothing. Each finding says how much care it asks for and has "
        "an ID, with which clean clears it.",
    .shared = static_cast<unsigned>(TidyShared::scan),
    .options = options,
};

FindingsRequest FindingsRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(0, 0);
    return {.place = {.home = arguments.value("--home"), .isQuick = arguments.has("--quick")},
            .scan = arguments.scan(),
            .output = arguments.output()};
}

TidyResult run(const FindingsRequest& request, TidyContext& context) {
    FoundPlaces found = findPlaces(request.place, request.scan, context);
    TidyResult result;
    if (request.output.json) {
        result.standardOutput = tidyDocument([&](JSONWriter& json) {
            json.key("findings");
            json.beginArray();
            for (const SpaceSaverFinding& finding : found.findings)
                writeFinding(json, finding);
            json.endArray();
            json.key("home");
            json.string(found.home.native());
            if (found.scan)
                writeUnreadable(json, found.scan->stats);
            json.key("total");
            json.integer(freeableBytes(found.findings));
        });
    } else {
        result.standardOutput = textOf(found, context.style(request.output), context);
    }
    if (found.scan)
        context.keep(*std::move(found.scan));
    return result;
}

} // namespace tarnwell
