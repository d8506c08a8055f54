#include "TarnwellTidyKit/Commands/ScheduleCommand.hpp"

#include "TarnwellCore/Settings/SettingsSchedule.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/SettingsCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"

#include <cmath>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using State = ScheduleInstaller::State;

constexpr TidyOptionSpec options[] = {
    {.name = "--force", .value = "", .help = "With run: take a snapshot now, due or not"},
};

/// What the timer starts.
ScheduledJobPlan planOf(const TidyContext& context) {
    return context.services.schedulePlan({"schedule", "run"});
}

struct Schedule {
    SnapshotCadence cadence = SnapshotCadence::off;
    std::optional<std::string> root;
    std::optional<Date> last;
    /// When the next snapshot is due; now or earlier when one is.
    std::optional<Date> next;
    State state = State::absent;
};

/// Midnight of the user's, so many days after the day of a date.
Date midnightAfter(Date date, std::int64_t days) {
    const auto seconds = static_cast<std::time_t>(std::floor(date.time_since_epoch().count()));
    std::tm day = {};
    if (::localtime_r(&seconds, &day) == nullptr)
        return date;
    day.tm_mday += static_cast<int>(days); // a cadence is some days long
    day.tm_hour = day.tm_min = day.tm_sec = 0;
    day.tm_isdst = -1;
    return Date(std::chrono::duration<double>(static_cast<double>(std::mktime(&day))));
}

Schedule scheduleOf(TidyContext& context) {
    const AppSettings& settings = context.settings();
    Schedule schedule{.cadence = snapshotCadenceOf(settings),
                      .root = settings.snapshotScheduleRoot(),
                      .last = settings.lastScheduledSnapshotAt(),
                      .next = {},
                      .state = context.services.scheduleInstaller.state(planOf(context))};
    const Date now = context.services.now();
    const auto days = SnapshotSchedule::daysUntilDue(schedule.cadence, schedule.last, now);
    if (days && schedule.root)
        schedule.next = *days == 0 ? now : midnightAfter(now, *days);
    return schedule;
}

std::string_view stateName(State state) {
    switch (state) {
    case State::absent:
        return "absent";
    case State::different:
        return "different";
    case State::installed:
        return "installed";
    }
    return "absent";
}

// --- Saying -----------------------------------------------------------------------------------------------

std::string textOf(const Schedule& schedule, Date now) {
    if (schedule.cadence == SnapshotCadence::off || !schedule.root)
        return schedule.state == State::absent ? "No snapshots are scheduled.\n"
                                               : "No snapshots are scheduled, but the timer is still there; "
                                                 "schedule off takes it away.\n";
    const std::string daily = schedule.cadence == SnapshotCadence::daily ? "every day" : "every week";
    std::string text = "Snapshots of " + harmless(*schedule.root) + " are taken " + daily + ".\n";
    if (schedule.last)
        text += "The last one is of " + dayText(schedule.last) + ".\n";
    if (schedule.next)
        text += *schedule.next <= now ? "The next one is due now.\n"
                                      : "The next one is due on " + dayText(schedule.next) + ".\n";
    if (schedule.state != State::installed)
        text += std::string(schedule.state == State::absent ? "But the timer is not there"
                                                            : "But the timer starts something else") +
                "; schedule " + std::string(rawValue(schedule.cadence)) + " puts it in place.\n";
    return text;
}

void writeText(JSONWriter& json, std::string_view key, const std::optional<std::string>& text) {
    json.key(key);
    text ? json.string(*text) : json.null();
}

void writeDate(JSONWriter& json, std::string_view key, std::optional<Date> date) {
    writeText(json, key, date ? iso8601Text(*date) : std::nullopt);
}

using Writer = std::function<void(JSONWriter&)>;
/// What a command adds, each at the place of its keys.
struct Additions {
    Writer failure = [](JSONWriter&) {};
    Writer outcome = [](JSONWriter&) {};
    Writer snapshot = [](JSONWriter&) {};
};

std::string documentOf(const Schedule& schedule, const Additions& additions = {}) {
    return tidyDocument([&](JSONWriter& json) {
        json.key("cadence");
        json.string(rawValue(schedule.cadence));
        additions.failure(json);
        writeDate(json, "last", schedule.last);
        writeDate(json, "next", schedule.next);
        additions.outcome(json);
        writeText(json, "root", schedule.root);
        additions.snapshot(json);
        json.key("timer");
        json.string(stateName(schedule.state));
    });
}

// --- Arranging --------------------------------------------------------------------------------------------

TidyResult planned(const ScheduleRequest& request, const Schedule& before, const ScheduledJobPlan& plan,
                   const std::string& root) {
    const bool isOff = request.cadence == SnapshotCadence::off;
    if (request.output.json) {
        Schedule after = before;
        after.cadence = request.cadence;
        if (!isOff)
            after.root = root;
        after.next = std::nullopt;
        return {.standardOutput = documentOf(after, {.outcome = [&](JSONWriter& json) {
                                                 json.key("planned");
                                                 json.beginArray();
                                                 if (!isOff || before.state != State::absent)
                                                     for (const ScheduledJobPlan::File& file : plan.files)
                                                         json.string(file.path.native());
                                                 json.endArray();
                                             }})};
    }
    if (isOff && before.state == State::absent && before.cadence == SnapshotCadence::off)
        return {.standardOutput = "There is nothing to do.\n"};
    std::string text = isOff ? "Snapshots would no longer be scheduled, and these files would go:\n"
                             : "Snapshots of " + harmless(root) + " would be scheduled " +
                                   std::string(rawValue(request.cadence)) +
                                   ", and these files would start them:\n";
    for (const ScheduledJobPlan::File& file : plan.files)
        text += "  " + harmless(file.path.native()) + "\n";
    return {.standardOutput = text};
}

void store(AppSettings& settings, SnapshotCadence cadence, const std::string& root) {
    settings.setSnapshotCadence(std::string(rawValue(cadence)));
    if (cadence != SnapshotCadence::off && settings.snapshotScheduleRoot() != root) {
        settings.setSnapshotScheduleRoot(root);
        settings.setLastScheduledSnapshotAt(std::nullopt); // of the other folder
    }
    storeSettings(settings);
}

TidyResult set(const ScheduleRequest& request, TidyContext& context) {
    const bool isOff = request.cadence == SnapshotCadence::off;
    const ScheduleInstaller& installer = context.services.scheduleInstaller;
    const ScheduledJobPlan plan = planOf(context);
    const Schedule before = scheduleOf(context);
    std::string root;
    if (!isOff) {
        root = DiskScanner::normalize(typedPath(request.folder));
        std::error_code error;
        if (!fs::is_directory(root, error))
            throw std::runtime_error(root + " is not a folder.");
    }
    if (request.act.dryRun)
        return planned(request, before, plan, root);
    std::string question = isOff ? "Schedule no more snapshots?"
                                 : "Take a snapshot of " + harmless(root) + " " +
                                       std::string(rawValue(request.cadence)) +
                                       "? A timer looks every hour whether one is due.";
    if (const auto consent = context.consent(request.act, question); consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);

    std::optional<std::string> failure;
    context.act([&] {
        if (isOff) { // first the setting: a timer that stays finds that nothing is due
            store(context.settings(), request.cadence, root);
            installer.uninstall(plan);
            return;
        }
        failure = installer.install(plan);
        try {
            store(context.settings(), request.cadence, root);
        } catch (const std::exception&) {
            if (before.state == State::absent)
                installer.uninstall(plan);
            throw;
        }
    });
    const Schedule after = scheduleOf(context);
    TidyResult result{.exitCode = failure ? TidyResult::failed : 0};
    if (request.output.json) {
        result.standardOutput =
            documentOf(after, {.failure = [&](JSONWriter& json) { writeText(json, "failure", failure); }});
        return result;
    }
    result.standardOutput = textOf(after, context.services.now());
    if (failure)
        result.standardError =
            "tarnwell-tidy: The timer is in place, but does not run yet: " + harmless(*failure) + "\n";
    return result;
}

// --- Taking one -------------------------------------------------------------------------------------------

std::string_view outcomeName(ScheduledRun::Outcome outcome) {
    switch (outcome) {
    case ScheduledRun::Outcome::off:
        return "off";
    case ScheduledRun::Outcome::notDue:
        return "notDue";
    case ScheduledRun::Outcome::busy:
        return "busy";
    case ScheduledRun::Outcome::taken:
        return "taken";
    }
    return "off";
}

std::string outcomeText(const ScheduledRun& run, const Schedule& schedule) {
    switch (run.outcome) {
    case ScheduledRun::Outcome::off:
        return "No snapshots are scheduled.\n";
    case ScheduledRun::Outcome::notDue:
        return "None is due before " + dayText(schedule.next) + ".\n";
    case ScheduledRun::Outcome::busy:
        return "Another process is taking one.\n";
    case ScheduledRun::Outcome::taken:
        break;
    }
    std::string text =
        "A snapshot of " + harmless(run.snapshot->rootPath) + " was taken: " + run.snapshot->id.text() + "\n";
    if (!run.removed.empty())
        text += countedText(static_cast<std::int64_t>(run.removed.size()), "old one was", "old ones were") +
                " removed.\n";
    return text;
}

TidyResult take(const ScheduleRequest& request, TidyContext& context) {
    if (request.act.dryRun) {
        const Schedule schedule = scheduleOf(context);
        const bool isDue = schedule.next && (request.force || *schedule.next <= context.services.now());
        if (request.output.json)
            return {.standardOutput = documentOf(schedule, {.outcome = [&](JSONWriter& json) {
                                                     json.key("planned");
                                                     json.boolean(isDue);
                                                 }})};
        return {.standardOutput = isDue ? "A snapshot of " + harmless(*schedule.root) + " would be taken.\n"
                                        : textOf(schedule, context.services.now())};
    }
    ScanStats stats;
    std::string unreadable;
    ScheduledSnapshots schedule =
        scheduledSnapshots(context.settings(), context.services.snapshotStore(), context.services.history());
    schedule.now = context.services.now;
    schedule.scan = [&](const std::string& root, const CancellationToken& token) {
        const TidyProgress progress(context.surroundings);
        ScanResult scan =
            context.services.scan(root, context.settings().scanOptions(), progress.handler(), token).get();
        stats = scan.stats;
        unreadable = context.unreadableText(scan, context.style(request.output));
        return scan;
    };
    const ScheduledRun run = schedule.run(request.force, context.token());
    const Schedule after = scheduleOf(context);
    TidyResult result{.exitCode = run.failures.empty() ? 0 : TidyResult::failed};
    if (request.output.json) {
        result.standardOutput = documentOf(
            after, {.failure =
                        [&](JSONWriter& json) {
                            json.key("failures");
                            json.beginArray();
                            for (const std::string& failure : run.failures)
                                json.string(failure);
                            json.endArray();
                            writeUnreadable(json, stats);
                        },
                    .outcome =
                        [&](JSONWriter& json) {
                            json.key("outcome");
                            json.string(outcomeName(run.outcome));
                            json.key("removed");
                            json.beginArray();
                            for (const UUID& id : run.removed)
                                json.string(id.text());
                            json.endArray();
                        },
                    .snapshot =
                        [&](JSONWriter& json) {
                            writeText(json, "snapshot",
                                      run.snapshot ? std::optional(run.snapshot->id.text()) : std::nullopt);
                        }});
        return result;
    }
    result.standardOutput = outcomeText(run, after);
    result.standardError = unreadable;
    for (const std::string& failure : run.failures)
        result.standardError += "tarnwell-tidy: " + harmless(failure) + "\n";
    return result;
}

} // namespace

const TidyCommandSpec ScheduleRequest::spec = {
    .name = "schedule",
    .group = "Arrange",
    .operands = "daily FOLDER | weekly FOLDER | off | run",
    .summary = "Snapshots by the calendar",
    .details =
        "Has a snapshot of a folder taken every day or every week, which changes can compare with. The "
        "system "
        "starts schedule run every hour, which takes one when it is due, also after days on which the "
        "machine "
        "was off, and removes scheduled ones that are too old to be kept. off ends that; snapshots stay. "
        "Without any of these, it says how things stand.",
    .words = "off|daily|weekly|run",
    .completes = TidyCompletes::folders,
    .shared = static_cast<unsigned>(TidyShared::act),
    .options = options,
};

ScheduleRequest ScheduleRequest::read(const TidyArguments& arguments) {
    ScheduleRequest request{
        .force = arguments.has("--force"), .act = arguments.act(), .output = arguments.output()};
    const auto& words = arguments.operands();
    if (!words.empty()) {
        const auto cadence = snapshotCadenceFromRawValue(words.front());
        if (!cadence && words.front() != "run")
            failUnknownVerb(spec, words.front());
        request.verb = cadence ? Verb::set : Verb::run;
        request.cadence = cadence.value_or(SnapshotCadence::off);
        const bool takesFolder = request.cadence != SnapshotCadence::off;
        if (words.size() != (takesFolder ? 2U : 1U) || words.back().empty())
            throw TidyUsageError("schedule " + harmless(words.front()) +
                                 (takesFolder ? " takes a folder." : " takes nothing more."));
        if (takesFolder)
            request.folder = words.back();
    }
    if (request.force && request.verb != Verb::run)
        throw TidyUsageError("--force goes with schedule run.");
    return request;
}

TidyResult run(const ScheduleRequest& request, TidyContext& context) {
    switch (request.verb) {
    case ScheduleRequest::Verb::show: {
        const Schedule schedule = scheduleOf(context);
        return {.standardOutput =
                    request.output.json ? documentOf(schedule) : textOf(schedule, context.services.now())};
    }
    case ScheduleRequest::Verb::set:
        return set(request, context);
    case ScheduleRequest::Verb::run:
        return take(request, context);
    }
    return {};
}

} // namespace tarnwell
