#include "TarnwellTidyKit/Commands/VolumesCommand.hpp"

#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/DiskSpaceAlertPolicy.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <set>
#include <utility>

namespace tarnwell {

namespace {

constexpr TidyOptionSpec options[] = {
    {.name = "--watch", .value = "", .help = "Go on, and tell changes and low space as they come"},
    {.name = "--interval", .value = "SECONDS", .help = "Look this often (as the settings have it)"},
    {.name = "--updates", .value = "N", .help = "End the watch after N changes"},
};

std::string marksOf(const VolumeInfo& volume) {
    std::string marks = volume.fileSystemType;
    const auto add = [&](bool isSet, std::string_view mark) {
        if (isSet)
            marks += ", " + std::string(mark);
    };
    add(volume.isReadOnly, "read-only");
    add(volume.isNetwork, "network");
    add(volume.isRemovable || volume.isEjectable, "removable");
    return marks;
}

std::string textOf(const std::vector<VolumeInfo>& volumes, const TidyStyle& style) {
    using enum TidyColumn;
    constexpr std::size_t barWidth = 16;
    TidyTable table({left, right, left, right, right, path, sentence});
    table.row({{"Volume", TidyRole::heading},
               {"Used", TidyRole::heading},
               {style.hasBars ? " " : ""},
               {"Free", TidyRole::heading},
               {"Capacity", TidyRole::heading},
               {"Where", TidyRole::heading},
               {"Kind", TidyRole::heading}});
    for (const VolumeInfo& volume : volumes) {
        const bool isKnown = volume.totalCapacity > 0;
        const double used = isKnown ? 1 - static_cast<double>(volume.availableCapacity) /
                                              static_cast<double>(volume.totalCapacity)
                                    : 0;
        TidyTable::Cell bar{.text = style.hasBars ? std::string(barWidth, ' ') : std::string()};
        bar.painted = style.bar(used, barWidth);
        table.row({{volume.name},
                   {isKnown ? ByteFormatter::percent(used, 0) : "–",
                    used > 0.9 ? TidyRole::danger : TidyRole::plain},
                   bar,
                   {isKnown ? sizeText(volume.availableCapacity) : "–"},
                   {isKnown ? sizeText(volume.totalCapacity) : "–"},
                   {volume.path},
                   {marksOf(volume), TidyRole::quiet}});
    }
    std::string text;
    table.write(text, style);
    return text;
}

void writeVolume(JSONWriter& json, const VolumeInfo& volume) {
    const auto integer = [&](std::string_view key, std::int64_t value) {
        json.key(key);
        json.integer(value);
    };
    const auto boolean = [&](std::string_view key, bool value) {
        json.key(key);
        json.boolean(value);
    };
    const auto text = [&](std::string_view key, std::string_view value) {
        json.key(key);
        json.string(value);
    };
    json.beginObject();
    integer("available", volume.availableCapacity);
    integer("availableForImportantUsage", volume.availableForImportantUsage);
    integer("availableForOpportunisticUsage", volume.availableForOpportunisticUsage);
    integer("capacity", volume.totalCapacity);
    text("fileSystemType", volume.fileSystemType);
    boolean("isEjectable", volume.isEjectable);
    boolean("isInternal", volume.isInternal);
    boolean("isNetwork", volume.isNetwork);
    boolean("isReadOnly", volume.isReadOnly);
    boolean("isRemovable", volume.isRemovable);
    boolean("isRootVolume", volume.isRootVolume);
    text("name", volume.name);
    text("path", volume.path);
    integer("used", volume.totalCapacity - volume.availableCapacity);
    if (volume.uuid)
        text("uuid", *volume.uuid);
    json.endObject();
}

// --- Watching ---------------------------------------------------------------------------------------------

using Alerts = std::vector<DiskSpaceAlertPolicy::Alert>;

/// The volumes that were there at the last look and are not any more, by path.
class Departures {
public:
    std::vector<std::string> next(const std::vector<VolumeInfo>& volumes) {
        std::set<std::string> now;
        for (const VolumeInfo& volume : volumes)
            now.insert(volume.path);
        std::vector<std::string> gone;
        std::ranges::set_difference(seen_, now, std::back_inserter(gone));
        seen_ = std::move(now);
        return gone;
    }

private:
    std::set<std::string> seen_;
};

std::string linesOf(const SpaceUpdate& update, const std::vector<std::string>& gone, const Alerts& alerts,
                    const TidyStyle& style) {
    std::string text;
    const std::string time =
        style.painted(iso8601Text(update.timestamp).value_or("unknown"), TidyRole::quiet);
    for (const VolumeInfo& volume : update.volumes) {
        const auto delta = update.availableDelta.find(volume.path);
        const bool isNew = delta == update.availableDelta.end();
        if (volume.totalCapacity <= 0 || (!isNew && delta->second == 0))
            continue;
        text += time + "  " + harmless(volume.path) + "  ";
        if (!isNew)
            text += style.painted((delta->second > 0 ? "+" : "-") + sizeText(std::abs(delta->second)),
                                  delta->second > 0 ? TidyRole::good : TidyRole::warning) +
                    "  ";
        text += sizeText(volume.availableCapacity) + " free\n";
    }
    for (const std::string& path : gone)
        text += time + "  " + harmless(path) + "  " + style.painted("gone", TidyRole::warning) + "\n";
    for (const DiskSpaceAlertPolicy::Alert& alert : alerts)
        text += time + "  " + harmless(alert.volumePath) + "  " +
                style.painted("low on space: " + sizeText(alert.availableBytes) + " free", TidyRole::danger) +
                "\n";
    return text;
}

/// One line, as a reader takes them one by one.
std::string documentLine(const SpaceUpdate& update, const std::vector<std::string>& gone,
                         const Alerts& alerts) {
    const std::string document = tidyDocument(
        [&](JSONWriter& json) {
            json.key("alerts");
            json.beginArray();
            for (const DiskSpaceAlertPolicy::Alert& alert : alerts) {
                json.beginObject();
                json.key("available");
                json.integer(alert.availableBytes);
                json.key("name");
                json.string(alert.volumeName);
                json.key("path");
                json.string(alert.volumePath);
                json.endObject();
            }
            json.endArray();
            json.key("changes");
            json.beginArray();
            for (const auto& [path, delta] : update.availableDelta) {
                if (delta == 0)
                    continue;
                json.beginObject();
                json.key("delta");
                json.integer(delta);
                json.key("path");
                json.string(path);
                json.endObject();
            }
            json.endArray();
            json.key("gone");
            json.beginArray();
            for (const std::string& path : gone)
                json.string(path);
            json.endArray();
            json.key("time");
            json.string(iso8601Text(update.timestamp).value_or(""));
        },
        [&](JSONWriter& json) {
            json.key("volumes");
            json.beginArray();
            for (const VolumeInfo& volume : update.volumes)
                writeVolume(json, volume);
            json.endArray();
        });
    // Line feeds stand between elements only; in texts they are escaped.
    std::string line;
    bool isAtStart = true;
    for (const char character : document) {
        if (character == '\n')
            isAtStart = true;
        else if (character != ' ' || !isAtStart) {
            isAtStart = false;
            line += character;
        }
    }
    return line + "\n";
}

TidyResult watch(const VolumesRequest& request, TidyContext& context) {
    const TidyStyle style = context.style(request.output);
    DiskSpaceAlertPolicy policy(context.settings().lowDiskAlertThresholdBytes());
    const double interval = request.interval.value_or(context.settings().spaceMonitorInterval());
    const auto monitor = context.services.watchVolumes(interval);
    const auto stream = monitor->updates();
    const auto registration = context.token().onCancel([stream] { stream.finish(); });
    TidyResult result;
    Departures departures;
    std::int64_t seen = 0;
    while (!request.updates || seen < *request.updates) {
        const auto update = stream.next();
        if (!update || context.token().isCancelled())
            break;
        const Alerts alerts = policy.evaluate(update->volumes);
        const std::vector<std::string> gone = departures.next(update->volumes);
        const std::string text =
            request.output.json ? documentLine(*update, gone, alerts) : linesOf(*update, gone, alerts, style);
        ++seen;
        if (context.surroundings.output)
            context.surroundings.output(text);
        else
            result.standardOutput += text;
    }
    if (context.token().isCancelled())
        result.exitCode = TidyResult::interrupted;
    return result;
}

} // namespace

const TidyCommandSpec VolumesRequest::spec = {
    .name = "volumes",
    .group = "Look",
    .summary = "The mounted volumes and how full they are",
    .details =
        "Lists the volumes that users see. With --watch it goes on until Control-C and prints a line for "
        "each "
        "change of the free space, and one when a volume falls below the threshold in the settings "
        "(lowDiskAlertThresholdBytes), once for each dip, whether or not alerts are on; and one when a volume "
        "has gone. With --watch --json, each line is a document.",
    .options = options,
};

VolumesRequest VolumesRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(0, 0);
    VolumesRequest request{.watch = arguments.has("--watch"), .output = arguments.output()};
    request.updates = arguments.count("--updates", 1);
    request.interval = arguments.number("--interval", 0.1);
    if (!request.watch && (request.updates || request.interval))
        throw TidyUsageError("--interval and --updates go with --watch.");
    return request;
}

TidyResult run(const VolumesRequest& request, TidyContext& context) {
    if (request.watch)
        return watch(request, context);
    const std::vector<VolumeInfo> volumes = context.services.volumes();
    if (!request.output.json)
        return {.standardOutput = textOf(volumes, context.style(request.output))};
    return {.standardOutput = tidyDocument([](JSONWriter&) {},
                                           [&](JSONWriter& json) {
                                               json.key("volumes");
                                               json.beginArray();
                                               for (const VolumeInfo& volume : volumes)
                                                   writeVolume(json, volume);
                                               json.endArray();
                                           })};
}

} // namespace tarnwell
