#include "TarnwellTidyKit/Commands/HistoryCommand.hpp"

#include "TarnwellCore/Snapshots/GrowthTrend.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/HistoryChart.hpp"
#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

using Records = std::vector<ScanRecord>;

constexpr TidyOptionSpec options[] = {
    {.name = "--size-mode",
     .value = "MODE",
     .help = "Which size counts: apparent, allocated, reclaimable",
     .choices = "apparent|allocated|reclaimable"},
    {.name = "--top", .value = "N", .help = "List the N newest scans (20; with --json all)"},
};

/// The scans of one folder, oldest first.
struct Series {
    std::string path;
    Records scans;
    std::optional<GrowthTrend> trend;
};

Series seriesOf(std::string path, Records scans, SizeMode mode) {
    const auto trend = GrowthTrend::of(scans, mode);
    return {.path = std::move(path), .scans = std::move(scans), .trend = trend};
}

std::optional<std::int64_t> bytesPerDay(const Series& series) {
    if (!series.trend || !std::isfinite(series.trend->bytesPerDay))
        return std::nullopt;
    constexpr double most = 9e18;
    return std::llround(std::clamp(series.trend->bytesPerDay, -most, most));
}

TidyRole growthRole(std::int64_t bytes) {
    return bytes > 0 ? TidyRole::warning : bytes < 0 ? TidyRole::good : TidyRole::plain;
}

// --- For people -------------------------------------------------------------------------------------------

std::string growthText(const Series& series, Date now, const TidyStyle& style) {
    const auto daily = bytesPerDay(series);
    if (!daily)
        return "  How fast it grows can be told from two scans on.\n";
    std::string text = "  " + std::string(*daily < 0 ? "It shrinks by " : "It grows by ") +
                       style.painted(sizeText(std::abs(*daily)), growthRole(*daily)) + " a day, by " +
                       countedText(static_cast<std::int64_t>(series.trend->count), "scan", "scans") + ".\n";
    if (series.trend->fullAt)
        text += *series.trend->fullAt <= now
                    ? "  If it went on like that, its volume would be full by now.\n"
                    : "  If it goes on like that, its volume is full on " +
                          style.painted(dayText(series.trend->fullAt), TidyRole::strong) + ".\n";
    return text;
}

std::string textOf(const Series& series, SizeMode mode, std::size_t top, Date now, const TidyStyle& style) {
    std::string text =
        style.painted(harmless(series.path), TidyRole::heading) + ", " + std::string(rawValue(mode)) + "\n";
    std::vector<ChartPoint> points;
    for (const ScanRecord& scan : series.scans)
        points.push_back({scan.finishedAt, scan.totalSizeFor(mode)});
    text += historyChart(points, style);
    using enum TidyColumn;
    TidyTable table({left, right, right, right, sentence, sentence}, 2);
    const std::size_t shown = std::min(top, series.scans.size());
    for (std::size_t index = series.scans.size(); index-- > series.scans.size() - shown;) {
        const ScanRecord& scan = series.scans[index];
        TidyTable::Cell change;
        if (index > 0) {
            const std::int64_t bytes =
                sizeDifference(scan.totalSizeFor(mode), series.scans[index - 1].totalSizeFor(mode));
            change = {signedSizeText(bytes), growthRole(bytes)};
        }
        table.row({{dayText(scan.finishedAt)},
                   {sizeText(scan.totalSizeFor(mode))},
                   change,
                   {countedText(scan.fileCount, "file", "files"), TidyRole::quiet},
                   {scan.volume ? sizeText(scan.volume->free) + " free" : "", TidyRole::quiet},
                   {scan.unreadableFolderCount > 0
                        ? countedText(scan.unreadableFolderCount, "folder", "folders") + " not read"
                        : "",
                    TidyRole::warning}});
    }
    table.write(text, style);
    if (series.scans.size() > shown)
        text += "  and " + groupedNumber(static_cast<std::int64_t>(series.scans.size() - shown)) + " older\n";
    return text + growthText(series, now, style);
}

std::string overviewText(const std::vector<Series>& all, SizeMode mode, const TidyStyle& style) {
    using enum TidyColumn;
    TidyTable table({path, right, left, right, right, left});
    table.row({{"Folder", TidyRole::heading},
               {"Scans", TidyRole::heading},
               {"Last", TidyRole::heading},
               {"Size", TidyRole::heading},
               {"A day", TidyRole::heading},
               {"Full on", TidyRole::heading}});
    for (const Series& series : all) {
        const auto daily = bytesPerDay(series);
        table.row({{series.path},
                   {groupedNumber(static_cast<std::int64_t>(series.scans.size()))},
                   {dayText(series.scans.back().finishedAt)},
                   {sizeText(series.scans.back().totalSizeFor(mode))},
                   {daily ? signedSizeText(*daily) : "–", growthRole(daily.value_or(0))},
                   {series.trend && series.trend->fullAt ? dayText(series.trend->fullAt) : "–"}});
    }
    std::string text;
    table.write(text, style);
    return text;
}

// --- For programs -----------------------------------------------------------------------------------------

void writeDate(JSONWriter& json, std::string_view key, std::optional<Date> date) {
    json.key(key);
    const auto text = date ? iso8601Text(*date) : std::nullopt;
    text ? json.string(*text) : json.null();
}

void writePerDay(JSONWriter& json, const Series& series) {
    json.key("perDay");
    const auto daily = bytesPerDay(series);
    daily ? json.integer(*daily) : json.null();
}

void writeScan(JSONWriter& json, const ScanRecord& scan) {
    const auto integer = [&](std::string_view key, std::int64_t value) {
        json.key(key);
        json.integer(value);
    };
    json.beginObject();
    integer("allocated", scan.totalAllocatedSize);
    integer("directoryCount", scan.directoryCount);
    json.key("duration");
    json.number(scan.duration);
    integer("fileCount", scan.fileCount);
    writeDate(json, "finishedAt", scan.finishedAt);
    integer("inaccessibleCount", scan.unreadableFolderCount);
    json.key("path");
    json.string(scan.rootPath);
    integer("reclaimable", scan.totalReclaimableSize);
    integer("size", scan.totalSize);
    json.key("volume");
    if (scan.volume) {
        json.beginObject();
        integer("available", scan.volume->free);
        integer("capacity", scan.volume->capacity);
        json.endObject();
    } else {
        json.null();
    }
    json.endObject();
}

void writeScans(JSONWriter& json, const Records& scans, std::size_t top) {
    json.key("scans");
    json.beginArray();
    for (std::size_t index = scans.size() - std::min(top, scans.size()); index < scans.size(); ++index)
        writeScan(json, scans[index]);
    json.endArray();
}

std::string documentOf(const Series& series, SizeMode mode, std::size_t top) {
    return tidyDocument([&](JSONWriter& json) {
        writeDate(json, "fullOn", series.trend ? series.trend->fullAt : std::nullopt);
        json.key("path");
        json.string(series.path);
        writePerDay(json, series);
        writeScans(json, series.scans, top);
        json.key("sizeMode");
        json.string(rawValue(mode));
    });
}

std::string overviewDocument(const std::vector<Series>& all, const Records& scans, SizeMode mode,
                             std::size_t top) {
    return tidyDocument([&](JSONWriter& json) {
        json.key("folders");
        json.beginArray();
        for (const Series& series : all) {
            json.beginObject();
            writeDate(json, "fullOn", series.trend ? series.trend->fullAt : std::nullopt);
            json.key("path");
            json.string(series.path);
            writePerDay(json, series);
            json.key("scanCount");
            json.integer(static_cast<std::int64_t>(series.scans.size()));
            json.endObject();
        }
        json.endArray();
        writeScans(json, scans, top);
        json.key("sizeMode");
        json.string(rawValue(mode));
    });
}

} // namespace

const TidyCommandSpec HistoryRequest::spec = {
    .name = "history",
    .group = "Look",
    .operands = "[FOLDER]",
    .summary = "How a folder grew, and when its volume is full",
    .details =
        "Shows the scans of a folder that are kept, how much it grows in a day, and when that fills its "
        "volume; without a folder, a line for each. report and the snapshots of a schedule keep their scans, "
        "the newest 1,000 of all folders; scans that left something out by an option are not kept.",
    .completes = TidyCompletes::folders,
    .options = options,
};

HistoryRequest HistoryRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(0, 1);
    HistoryRequest request{.output = arguments.output()};
    if (!arguments.operands().empty())
        request.folder = arguments.operands().front();
    if (const auto mode = arguments.value("--size-mode"))
        request.sizeMode = sizeModeFromRawValue(*mode);
    request.top = arguments.count("--top", 1);
    return request;
}

TidyResult run(const HistoryRequest& request, TidyContext& context) {
    const SizeMode mode = request.sizeMode.value_or(context.settings().sizeMode());
    const TidyStyle style = context.style(request.output);
    constexpr std::int64_t listed = 20;
    const auto top = static_cast<std::size_t>(
        request.top.value_or(request.output.json ? std::numeric_limits<std::int64_t>::max() : listed));
    const ScanHistory history = context.services.history();
    if (request.folder) {
        const std::string path = DiskScanner::normalize(typedPath(*request.folder));
        const Series series = seriesOf(path, history.series(path), mode);
        if (request.output.json)
            return {.standardOutput = documentOf(series, mode, top)};
        if (series.scans.empty())
            return {.standardOutput = "No scan of " + harmless(path) +
                                      " is kept yet. One is with: tarnwell-tidy report " + harmless(path) +
                                      "\n"};
        return {.standardOutput = textOf(series, mode, top, context.services.now(), style)};
    }
    Records scans = history.list();
    std::ranges::reverse(scans); // oldest first
    std::map<std::string, Records> byFolder;
    for (const ScanRecord& scan : scans)
        byFolder[scan.rootPath].push_back(scan);
    std::vector<Series> all;
    for (auto& [path, records] : byFolder)
        all.push_back(seriesOf(path, std::move(records), mode));
    if (request.output.json)
        return {.standardOutput = overviewDocument(all, scans, mode, top)};
    if (all.empty())
        return {.standardOutput = "No scan is kept yet. One is with: tarnwell-tidy report FOLDER\n"};
    return {.standardOutput = overviewText(all, mode, style)};
}

} // namespace tarnwell
