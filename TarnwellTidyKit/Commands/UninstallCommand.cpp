#include "TarnwellTidyKit/Commands/UninstallCommand.hpp"

#include "TarnwellCore/Actions/Uninstaller.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"
#include "TarnwellTidyKit/Commands/TrashCommand.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr TidyOptionSpec options[] = {
    {.name = "--all", .value = "", .help = "Also what asks for caution: what others may use"},
    {.name = "--keep-leftovers", .value = "", .help = "The application alone"},
    {.name = "--home",
     .value = "FOLDER",
     .help = "Of this home instead of one's own",
     .completes = TidyCompletes::folders},
};

/// Where the application that was typed lies. Throws when it is called by a name that none or several have.
fs::path locationOf(const UninstallRequest& request, const Uninstaller& uninstaller) {
    const fs::path typed = typedPath(request.application);
    std::error_code error;
    if (request.application.find('/') != std::string::npos || fs::exists(fs::symlink_status(typed, error)))
        return typed;
    const auto called = applicationsCalled(request.application, uninstaller.installed().get());
    if (called.empty())
        throw std::runtime_error("There is no application '" + request.application +
                                 "' where applications are kept. Elsewhere, name it by its path.");
    if (called.size() == 1)
        return called.front().location;
    std::string message = "Several are called '" + request.application + "'; name one by its path:";
    for (const InstalledApplication& application : called)
        message += (&application == &called.front() ? " " : ", ") + application.location.native();
    throw std::runtime_error(message);
}

bool goes(const UninstallRequest& request, const UninstallItem& item) {
    if (item.reason == LeftoverReason::application)
        return true;
    return !request.keepsLeftovers && (request.everything || item.safety != CleanupSafety::caution);
}

struct Plan {
    const UninstallRequest& request;
    const UninstallPlan& whole;
    /// What of it goes.
    UninstallPlan chosen;
};

void writeItem(JSONWriter& json, const UninstallItem& item, bool isChosen) {
    json.beginObject();
    json.key("allocated");
    json.integer(item.allocatedSize);
    json.key("explanation");
    json.string(item.explanation());
    json.key("goes");
    json.boolean(isChosen);
    json.key("path");
    json.string(item.path.native());
    json.key("reason");
    json.string(rawValue(item.reason));
    json.key("reclaimable");
    json.integer(item.reclaimableSize);
    json.key("safety");
    json.string(rawValue(item.safety));
    json.key("size");
    json.integer(item.size);
    json.key("sizeIsKnown");
    json.boolean(item.isMeasured);
    json.endObject();
}

std::string documentOf(const Plan& plan, const TidyOutcomes& outcomes) {
    return tidyDocument([&](JSONWriter& json) {
        json.key("application");
        if (const auto& application = plan.whole.application) {
            json.beginObject();
            json.key("identifier");
            json.string(application->identifier);
            json.key("kind");
            json.string(rawValue(application->kind));
            json.key("name");
            json.string(application->name());
            json.key("path");
            json.string(application->location.native());
            json.endObject();
        } else {
            json.null();
        }
        json.key("items");
        json.beginArray();
        for (const UninstallItem& item : plan.whole.items)
            writeItem(json, item, !plan.whole.refusal && goes(plan.request, item));
        json.endArray();
        writeOutcomes(json, outcomes.all);
        json.key("refusal");
        if (plan.whole.refusal)
            json.string(plan.whole.refusal->explanation());
        else
            json.null();
        json.key("unreadable");
        json.beginArray();
        for (const fs::path& folder : plan.whole.unreadable)
            json.string(folder.native());
        json.endArray();
    });
}

/// What there is of the application: what goes first, then what stays.
std::string textOf(const Plan& plan, const TidyStyle& style) {
    const UninstallPlan& whole = plan.whole;
    if (whole.items.empty())
        return {};
    std::string text = style.painted(harmless(whole.application->name()), TidyRole::heading);
    if (!whole.application->identifier.empty())
        text += " " + style.painted(harmless(whole.application->identifier), TidyRole::quiet);
    text += "\n";
    std::int64_t total = 0;
    for (const bool isGoing : {true, false}) {
        TidyTable table({TidyColumn::right, TidyColumn::path, TidyColumn::sentence}, 2);
        for (const UninstallItem& item : whole.items) {
            if (goes(plan.request, item) != isGoing)
                continue;
            const bool isDoubtful = item.safety == CleanupSafety::caution;
            table.row({{item.isMeasured ? sizeText(item.reclaimableSize) : "?"},
                       {item.path.native()},
                       {item.explanation(), isDoubtful ? TidyRole::warning : TidyRole::quiet}});
            if (isGoing)
                total += item.reclaimableSize;
        }
        if (!isGoing && !table.isEmpty())
            text += "These stay" +
                    std::string(plan.request.keepsLeftovers ? ":\n" : "; --all takes them, too:\n");
        table.write(text, style);
    }
    return text + "Emptying the Trash afterwards would free " +
           style.painted(sizeText(total), TidyRole::strong) + ".\n";
}

std::string unreadableText(const UninstallPlan& plan) {
    std::string text;
    for (const fs::path& folder : plan.unreadable)
        text += harmless(folder.native()) + ": It could not be looked through.\n";
    return text;
}

TidyResult refused(const Plan& plan) {
    TidyResult result{.exitCode = TidyResult::failed};
    if (plan.request.output.json)
        result.standardOutput = documentOf(plan, {});
    else
        result.standardError =
            harmless(plan.request.application) + ": " + harmless(plan.whole.refusal->explanation()) + "\n";
    return result;
}

} // namespace

const TidyCommandSpec UninstallRequest::spec = {
    .name = "uninstall",
    .group = "Clear",
    .operands = "APPLICATION",
    .summary = "Move an application and what it left to the Trash",
    .details = "Shows an application, named by its path, its identifier or its name, with what it has left "
               "in the home and "
               "on the machine, what each takes and why it was matched, and moves all of it to the Trash as "
               "one set: trash "
               "restore brings it back. What asks for caution, as others may use it, stays unless --all is "
               "given. An "
               "application that runs is refused, and so are security products, which their own uninstallers "
               "remove.",
    .completes = TidyCompletes::paths,
    .shared = static_cast<unsigned>(TidyShared::act),
    .options = options,
};

UninstallRequest UninstallRequest::read(const TidyArguments& arguments) {
    if (arguments.has("--all") && arguments.has("--keep-leftovers"))
        throw TidyUsageError("--all and --keep-leftovers do not go together.");
    return {.application = arguments.onlyOperand(),
            .home = arguments.value("--home"),
            .everything = arguments.has("--all"),
            .keepsLeftovers = arguments.has("--keep-leftovers"),
            .act = arguments.act(),
            .output = arguments.output()};
}

TidyResult run(const UninstallRequest& request, TidyContext& context) {
    const fs::path home =
        request.home ? fs::path(DiskScanner::normalize(typedPath(*request.home))) : context.services.home();
    const Uninstaller uninstaller = context.services.uninstaller(home);
    const fs::path location = locationOf(request, uninstaller);
    const TidyProgress line(context.surroundings);
    line.show("Looking for what belongs to " + request.application);
    const UninstallPlan whole = uninstaller.plan(location, context.token()).get();
    line.clear();
    if (context.token().isCancelled())
        throw TidyInterrupted();
    Plan plan{request, whole, whole};
    std::erase_if(plan.chosen.items, [&](const UninstallItem& item) { return !goes(request, item); });
    if (whole.refusal)
        return refused(plan);
    if (request.act.dryRun)
        return {.standardOutput =
                    request.output.json ? documentOf(plan, {}) : textOf(plan, context.style(request.output)),
                .standardError = request.output.json ? std::string() : unreadableText(whole)};

    const std::string question =
        textOf(plan, {}) + unreadableText(whole) + "Move " +
        countedText(static_cast<std::int64_t>(plan.chosen.items.size()), "item", "items") + " to the Trash?";
    const bool isAsked = isAskedBeforeTrash(context, request.act);
    const auto consent = consentToTrash(context, request.act, question);
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    std::string shown =
        isAsked || request.output.json ? std::string() : textOf(plan, context.style(request.output));
    if (context.surroundings.output && !shown.empty())
        context.surroundings.output(std::exchange(shown, {})); // before anything moves
    TidyOutcomes outcomes;
    line.show("Moving to the Trash");
    context.act([&] {
        for (const TrashOutcome& moved : uninstaller.carryOut(plan.chosen, context.token()).get())
            outcomes.all.push_back(outcomeOf(moved));
    });
    line.clear();
    outcomes.isInterrupted = context.token().isCancelled();
    TidyResult result = outcomes.result(context, request.output, trashNote);
    result.standardOutput.insert(0, shown);
    if (request.output.json)
        result.standardOutput = documentOf(plan, outcomes);
    else
        result.standardError = unreadableText(whole) + result.standardError;
    return result;
}

} // namespace tarnwell
