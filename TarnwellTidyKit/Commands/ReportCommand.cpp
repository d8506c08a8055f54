#include "TarnwellTidyKit/Commands/ReportCommand.hpp"

#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/DateFormatting.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/ReportFigures.hpp"
#include "TarnwellTidyKit/Commands/ReportLedger.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>
#include <utility>

namespace tarnwell {

namespace {

constexpr TidyOptionSpec options[] = {
    {.name = "--top", .value = "N", .help = "List the N largest files and folders (10)"},
    {.name = "--forget", .value = "", .help = "Do not keep the scan in the history"},
};

/// All that a page is made of.
struct Page {
    const ScanResult& scan;
    ReportFigures figures;
    std::optional<VolumeInfo> volume;
    VolumeLedger ledger;
    SizeMode mode;
};

/// The categories that hold something, largest first, equal ones in the order of their raw values.
std::vector<FileCategory> usedCategories(const Page& page) {
    const auto& sums = page.figures.categories;
    std::vector<FileCategory> used;
    for (const FileCategory category : allFileCategories())
        if (sums[rawValue(category)] != FigureSum{})
            used.push_back(category);
    std::ranges::stable_sort(used, [&](FileCategory a, FileCategory b) {
        return sums[rawValue(a)].sizeFor(page.mode) > sums[rawValue(b)].sizeFor(page.mode);
    });
    return used;
}

constexpr std::array<std::string_view, reportAgeCount> ageNames = {"underMonth", "underYear", "older",
                                                                   "unknown"};
constexpr std::array<std::string_view, reportAgeCount> ageTitles = {"Under a month", "Under a year", "Older",
                                                                    "Not known"};

double share(std::int64_t part, std::int64_t whole) {
    return whole > 0 ? static_cast<double>(part) / static_cast<double>(whole) : 0;
}

/// Whether the scan is of the folder as other scans are, so that growth can be told from them.
bool isComparable(const TidyScanChoices& choices) {
    return choices.excludedPaths.empty() && choices.excludedNames.empty() && !choices.crossFileSystems &&
           !choices.leaveOutHidden;
}

/// What is said when the scan could not be kept: the page is there all the same.
std::string keepInHistory(const Page& page, const TidyContext& context) {
    try {
        const ScanRecord record = ScanRecord::of(page.scan, page.volume, context.services.now());
        context.act([&] { context.services.history().note(record); });
        return {};
    } catch (const TidyInterrupted&) {
        throw;
    } catch (const std::exception& error) {
        return "tarnwell-tidy: The scan is not in the history: " + harmless(error.what()) + "\n";
    }
}

// --- For people -------------------------------------------------------------------------------------------

void addHeading(std::string& text, const TidyStyle& style, std::string_view heading) {
    text += '\n' + style.painted(heading, TidyRole::heading) + '\n';
}

void addLargest(std::string& text, const TidyStyle& style, const Page& page, std::string_view heading,
                const std::vector<const FileNode*>& nodes) {
    if (nodes.empty())
        return;
    addHeading(text, style, heading);
    const std::string root = page.scan.root->path();
    TidyTable table({TidyColumn::right, TidyColumn::path}, 2);
    for (const FileNode* node : nodes) {
        std::string path = node->path();
        if (path.size() > root.size() + 1 && path.starts_with(root))
            path.erase(0, root.size() + (root == "/" ? 0 : 1));
        table.row({{sizeText(node->sizeFor(page.mode))}, {path}});
    }
    table.write(text, style);
}

void addSums(std::string& text, const TidyStyle& style, const Page& page,
             const std::vector<std::pair<std::string_view, FigureSum>>& sums) {
    using enum TidyColumn;
    constexpr std::size_t barWidth = 16;
    std::int64_t total = 0;
    for (const auto& [title, sum] : sums)
        total += sum.sizeFor(page.mode);
    TidyTable table({right, right, left, left, right}, 2);
    for (const auto& [title, sum] : sums) {
        const double part = share(sum.sizeFor(page.mode), total);
        TidyTable::Cell bar{.text = style.hasBars ? std::string(barWidth, ' ') : std::string()};
        bar.painted = style.bar(part, barWidth);
        table.row({{sizeText(sum.sizeFor(page.mode))},
                   {ByteFormatter::percent(part, 1), TidyRole::quiet},
                   bar,
                   {std::string(title)},
                   {countedText(sum.fileCount, "file", "files"), TidyRole::quiet}});
    }
    table.write(text, style);
}

std::string textOf(const Page& page, const TidyStyle& style, TidyContext& context) {
    const ScanStats& stats = page.scan.stats;
    std::string text = style.painted(harmless(page.scan.root->path()), TidyRole::heading) + "\n";
    TidyTable totals({TidyColumn::left, TidyColumn::right, TidyColumn::left}, 2);
    totals.row({{"Apparent"},
                {sizeText(stats.totalSize), TidyRole::strong},
                {"what the files say", TidyRole::quiet}});
    totals.row({{"Allocated"},
                {sizeText(stats.totalAllocatedSize), TidyRole::strong},
                {"what they take on the disk", TidyRole::quiet}});
    totals.row({{"Reclaimable"},
                {sizeText(stats.totalReclaimableSize), TidyRole::strong},
                {"what deleting them would free", TidyRole::quiet}});
    totals.write(text, style);
    text += "  " + countedText(stats.fileCount, "file", "files") + " in " +
            countedText(stats.directoryCount, "folder", "folders") + ", read in " +
            DateFormatting::durationString(page.scan.duration) + "\n";
    if (page.volume) {
        const std::int64_t used = page.volume->totalCapacity - page.volume->availableCapacity;
        text += "  Volume " + harmless(page.volume->name) + ": " + sizeText(page.volume->availableCapacity) +
                " free of " + sizeText(page.volume->totalCapacity) + ", " + sizeText(used) + " used\n";
    }

    std::vector<std::pair<std::string_view, FigureSum>> sums;
    for (const FileCategory category : usedCategories(page))
        sums.emplace_back(displayName(category), page.figures.categories[rawValue(category)]);
    if (!sums.empty()) {
        addHeading(text, style, "Categories");
        addSums(text, style, page, sums);
    }
    addLargest(text, style, page, "Largest folders", page.figures.largestFolders);
    addLargest(text, style, page, "Largest files", page.figures.largestFiles);
    sums.clear();
    for (std::size_t age = 0; age < reportAgeCount; ++age)
        if (page.figures.ages[age] != FigureSum{})
            sums.emplace_back(ageTitles[age], page.figures.ages[age]);
    if (!sums.empty()) {
        addHeading(text, style, "Last modified");
        addSums(text, style, page, sums);
    }
    if (stats.hardlinkDuplicateCount > 0 || page.figures.cloneCount > 0) {
        addHeading(text, style, "Shared");
        if (stats.hardlinkDuplicateCount > 0)
            text += "  " + countedText(stats.hardlinkDuplicateCount, "further link", "further links") +
                    " to files already counted, " + sizeText(stats.hardlinkSavedBytes) + " saved\n";
        if (page.figures.cloneCount > 0)
            text += "  " + countedText(page.figures.cloneCount, "file shares", "files share") + " blocks, " +
                    sizeText(page.figures.cloneSharedBytes) + " in all\n";
    }
    text += '\n' + ledgerText(page.ledger, style);
    const std::string unreadable = context.unreadableText(page.scan, style);
    return unreadable.empty() ? text : text + "\n" + unreadable;
}

// --- For programs -----------------------------------------------------------------------------------------

void writeSum(JSONWriter& json, const FigureSum& sum, std::string_view nameKey, std::string_view name) {
    json.beginObject();
    const auto writeName = [&](bool isHere) {
        if (isHere) {
            json.key(nameKey);
            json.string(name);
        }
    };
    writeName(nameKey == "age");
    json.key("allocated");
    json.integer(sum.allocatedSize);
    writeName(nameKey == "category");
    json.key("fileCount");
    json.integer(sum.fileCount);
    json.key("reclaimable");
    json.integer(sum.reclaimableSize);
    json.key("size");
    json.integer(sum.size);
    json.endObject();
}

void writeNodes(JSONWriter& json, std::string_view key, const std::vector<const FileNode*>& nodes) {
    json.key(key);
    json.beginArray();
    for (const FileNode* node : nodes) {
        json.beginObject();
        json.key("allocated");
        json.integer(node->allocatedSize);
        json.key("path");
        json.string(node->path());
        json.key("reclaimable");
        json.integer(node->reclaimableSize);
        json.key("size");
        json.integer(node->size);
        json.endObject();
    }
    json.endArray();
}

void writePage(JSONWriter& json, const Page& page) {
    const ScanStats& stats = page.scan.stats;
    json.key("ages");
    json.beginArray();
    for (std::size_t age = 0; age < reportAgeCount; ++age)
        writeSum(json, page.figures.ages[age], "age", ageNames[age]);
    json.endArray();
    json.key("categories");
    json.beginArray();
    for (const FileCategory category : usedCategories(page))
        writeSum(json, page.figures.categories[rawValue(category)], "category", displayName(category));
    json.endArray();
    json.key("cloneCount");
    json.integer(page.figures.cloneCount);
    json.key("cloneSharedBytes");
    json.integer(page.figures.cloneSharedBytes);
    json.key("directoryCount");
    json.integer(stats.directoryCount);
    json.key("duration");
    json.number(page.scan.duration);
    json.key("fileCount");
    json.integer(stats.fileCount);
    json.key("hardlinkCount");
    json.integer(stats.hardlinkDuplicateCount);
    json.key("hardlinkSavedBytes");
    json.integer(stats.hardlinkSavedBytes);
    json.key("inaccessible");
    json.beginArray();
    for (const std::string& path : page.scan.inaccessiblePaths)
        json.string(path);
    json.endArray();
    json.key("inaccessibleCount"); // the list has its bounds
    json.integer(stats.inaccessibleCount);
    json.key("inaccessibleEntryCount");
    json.integer(stats.inaccessibleEntryCount);
    writeNodes(json, "largestFiles", page.figures.largestFiles);
    writeNodes(json, "largestFolders", page.figures.largestFolders);
    json.key("ledger");
    writeLedger(json, page.ledger);
    json.key("path");
    json.string(page.scan.root->path());
    json.key("sizeMode");
    json.string(rawValue(page.mode));
    json.key("totals");
    json.beginObject();
    json.key("allocated");
    json.integer(stats.totalAllocatedSize);
    json.key("reclaimable");
    json.integer(stats.totalReclaimableSize);
    json.key("size");
    json.integer(stats.totalSize);
    json.endObject();
}

void writeVolume(JSONWriter& json, const std::optional<VolumeInfo>& volume) {
    if (!volume)
        return;
    json.key("volume");
    json.beginObject();
    json.key("available");
    json.integer(volume->availableCapacity);
    json.key("capacity");
    json.integer(volume->totalCapacity);
    json.key("name");
    json.string(volume->name);
    json.key("path");
    json.string(volume->path);
    json.endObject();
}

} // namespace

const TidyCommandSpec ReportRequest::spec = {
    .name = "report",
    .group = "Look",
    .operands = "FOLDER",
    .summary = "What is in a folder, on one page",
    .details =
        "Measures the folder and tells its three sizes, its volume, the categories of its files, the largest "
        "files and folders, when they were last modified, what links and clones save, where the used bytes "
        "of its volume are, and what could not be "
        "read. A folder of which one folder inside holds four fifths is told by that one. What history tells "
        "growth from is kept, unless something is left out by an option.",
    .completes = TidyCompletes::folders,
    .shared = static_cast<unsigned>(TidyShared::scan),
    .options = options,
};

ReportRequest ReportRequest::read(const TidyArguments& arguments) {
    ReportRequest request{
        .folder = arguments.onlyOperand(), .scan = arguments.scan(), .output = arguments.output()};
    request.top = arguments.count("--top").value_or(request.top);
    request.isKept = !arguments.has("--forget");
    return request;
}

TidyResult run(const ReportRequest& request, TidyContext& context) {
    ScanResult scan = context.scan(request.folder, request.scan);
    const SizeMode mode = context.sizeMode(request.scan);
    const TidyProgress line(context.surroundings);
    line.show("Looking where the used bytes of the volume are");
    const Page page{.scan = scan,
                    .figures = ReportFigures::of(*scan.root, mode, static_cast<std::size_t>(request.top),
                                                 context.services.now()),
                    .volume = context.services.volumeContaining(scan.root->path()),
                    .ledger = context.services.ledger(scan, context.token()),
                    .mode = mode};
    line.clear();
    TidyResult result;
    if (request.output.json)
        result.standardOutput = tidyDocument([&](JSONWriter& json) { writePage(json, page); },
                                             [&](JSONWriter& json) { writeVolume(json, page.volume); });
    else
        result.standardOutput = textOf(page, context.style(request.output), context);
    if (request.isKept && isComparable(request.scan))
        result.standardError = keepInHistory(page, context);
    context.keep(std::move(scan));
    return result;
}

} // namespace tarnwell
