#include "TarnwellTidyKit/Commands/FindCommand.hpp"

#include "TarnwellCore/Analysis/Search.hpp"
#include "TarnwellCore/Analysis/SearchMatcher.hpp"
#include "TarnwellCore/Scanning/PathOrder.hpp"
#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellCore/Text/TextOutput.hpp"
#include "TarnwellTidyKit/Commands/TidyCategories.hpp"
#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tarnwell {

namespace {

using Order = FindRequest::Order;

constexpr TidyOptionSpec options[] = {
    {.name = "--name", .value = "TEXT", .help = "The name holds this text, in any letter case"},
    {.name = "--glob", .value = "PATTERN", .help = "The name, or with a / the path, is like *.iso"},
    {.name = "--regex", .value = "PATTERN", .help = "The regular expression is found in the name"},
    {.name = "--larger", .value = "SIZE", .help = "At least so large"},
    {.name = "--smaller", .value = "SIZE", .help = "At most so large"},
    {.name = "--older", .value = "AGE", .help = "Not modified for so long, or since a date"},
    {.name = "--newer", .value = "AGE", .help = "Modified within so long, or since a date"},
    {.name = "--unopened", .value = "AGE", .help = "Not opened for so long, or since a date"},
    {.name = "--category", .value = "NAME", .help = "Of this category; may be repeated"},
    {.name = "--kind",
     .value = "KIND",
     .help = "file, folder, package, link; may be repeated",
     .choices = "file|folder|package|link"},
    {.name = "--flag",
     .value = "FLAG",
     .help = "Is hidden, dataless, clone, hardlink, inaccessible",
     .choices = "hidden|dataless|clone|hardlink|inaccessible"},
    {.name = "--sort",
     .value = "ORDER",
     .help = "By size, name, path, modified",
     .choices = "size|name|path|modified"},
    {.name = "--top", .value = "N", .help = "Only the first N; without --sort the largest"},
    {.name = "--print0", .value = "", .help = "Only paths, each ended by a zero byte, for xargs -0"},
};

constexpr std::array<std::pair<std::string_view, SearchKind>, 4> kinds = {{{"file", SearchKind::file},
                                                                           {"folder", SearchKind::folder},
                                                                           {"package", SearchKind::package},
                                                                           {"link", SearchKind::link}}};
constexpr std::array<std::pair<std::string_view, SearchFlag>, 5> flags = {
    {{"hidden", SearchFlag::hidden},
     {"dataless", SearchFlag::dataless},
     {"clone", SearchFlag::clone},
     {"hardlink", SearchFlag::hardLink},
     {"inaccessible", SearchFlag::inaccessible}}};
constexpr std::array<std::pair<std::string_view, Order>, 4> orders = {
    {{"size", Order::size}, {"name", Order::name}, {"path", Order::path}, {"modified", Order::modified}}};

template <class Table>
auto valueIn(const Table& table, std::string_view word) {
    return std::ranges::find(table, word, [](const auto& row) { return row.first; })->second;
}

std::optional<Date> momentOf(const std::optional<std::string>& text, std::string_view option, Date now) {
    if (!text)
        return std::nullopt;
    const auto moment = momentFromText(*text, now);
    if (!moment)
        throw TidyUsageError(std::string(option) +
                             " takes an age such as 30d, 6w or 1y, or a date such as 2024-05-01, "
                             "not '" +
                             harmless(*text) + "'.");
    return moment;
}

struct Matches {
    std::vector<const FileNode*> nodes;
    SearchTotals totals;
};

void sort(std::vector<const FileNode*>& nodes, Order order, SizeMode mode) {
    const auto by = [&](auto comesFirst) { std::ranges::stable_sort(nodes, comesFirst); };
    switch (order) {
    case Order::walk:
        break;
    case Order::size:
        by([mode](const FileNode* a, const FileNode* b) { return a->sizeFor(mode) > b->sizeFor(mode); });
        break;
    case Order::name:
        by([](const FileNode* a, const FileNode* b) { return a->name() < b->name(); });
        break;
    case Order::path:
        sortByPath(nodes);
        break;
    case Order::modified:
        by([](const FileNode* a, const FileNode* b) {
            return a->modificationSeconds > b->modificationSeconds;
        });
        break;
    }
}

Matches search(const FileNode& root, const FindRequest& request, const SearchConditions& conditions,
               const TidyContext& context) {
    Matches matches;
    const auto limit = static_cast<std::size_t>(request.top.value_or(0));
    const bool wantsLargest = request.order == Order::walk || request.order == Order::size;
    if (request.top && wantsLargest) {
        LargestMatches largest = Search::largest(root, conditions, limit, context.token());
        return {std::move(largest.nodes), largest.totals};
    }
    matches.totals = Search::stream(
        root, conditions,
        [&](const FileNode& node) {
            matches.nodes.push_back(&node);
            return true;
        },
        context.token());
    sort(matches.nodes, request.order, conditions.sizeMode);
    if (request.top && matches.nodes.size() > limit)
        matches.nodes.resize(limit);
    return matches;
}

// --- Output -----------------------------------------------------------------------------------------------

std::string listed(const Matches& matches, const FindRequest& request, SizeMode mode,
                   const TidyContext& context, TextOutput output) {
    const TidyStyle style = context.style(request.output);
    const NameStyle names = nameStyle(context.surroundings.isTerminal); // of what is for programs
    constexpr std::size_t sizeWidth = 10;
    std::string path;
    for (const FileNode* node : matches.nodes) {
        path.clear();
        node->appendPath(path);
        std::string& text = output.text();
        if (request.print0) {
            appendStyled(text, path, names);
            text += '\0';
        } else {
            text += style.painted(padded(sizeText(node->sizeFor(mode)), sizeWidth, Side::right),
                                  TidyRole::strong);
            text += "  ";
            if (style.columns > sizeWidth + 2)
                text += fitted(path, style.columns - sizeWidth - 2, Cut::start);
            else
                appendHarmless(text, path);
            text += '\n';
        }
        output.endPart();
    }
    if (!request.print0 && context.surroundings.isTerminal)
        output.text() += countedText(matches.totals.count, "match", "matches") + ", " +
                         sizeText(mode == SizeMode::apparent    ? matches.totals.size
                                  : mode == SizeMode::allocated ? matches.totals.allocatedSize
                                                                : matches.totals.reclaimableSize) +
                         "\n";
    return output.finish();
}

void writeMatch(JSONWriter& json, const FileNode& node, std::string& path) {
    path.clear();
    node.appendPath(path);
    json.beginObject();
    json.key("allocated");
    json.integer(node.allocatedSize);
    json.key("category");
    json.string(displayName(node.category));
    json.key("modified");
    const auto date = node.modificationDate();
    const auto text = date ? iso8601Text(*date) : std::nullopt;
    if (text)
        json.string(*text);
    else
        json.null();
    json.key("path");
    json.string(path);
    json.key("reclaimable");
    json.integer(node.reclaimableSize);
    json.key("size");
    json.integer(node.size);
    json.endObject();
}

std::string document(const Matches& matches, const ScanResult& scan, TextOutput output) {
    JSONWriter json(output.text());
    std::string path;
    json.beginObject();
    json.key("count");
    json.integer(matches.totals.count);
    writeUnreadable(json, scan.stats);
    json.key("matches");
    json.beginArray();
    for (const FileNode* node : matches.nodes) {
        writeMatch(json, *node, path);
        output.endPart();
    }
    json.endArray();
    json.key("path");
    json.string(scan.root->path());
    json.key("totals");
    json.beginObject();
    json.key("allocated");
    json.integer(matches.totals.allocatedSize);
    json.key("reclaimable");
    json.integer(matches.totals.reclaimableSize);
    json.key("size");
    json.integer(matches.totals.size);
    json.endObject();
    json.key("undecidedCount");
    json.integer(matches.totals.undecidedCount);
    json.key("version");
    json.integer(1);
    json.endObject();
    output.text() += '\n';
    return output.finish();
}

} // namespace

SearchConditions conditionsOf(const FindRequest& request, SizeMode mode, Date now) {
    SearchConditions conditions = request.conditions;
    conditions.sizeMode = mode;
    conditions.modified.before = momentOf(request.ages.older, "--older", now);
    conditions.modified.from = momentOf(request.ages.newer, "--newer", now);
    conditions.opened.before = momentOf(request.ages.unopened, "--unopened", now);
    return conditions;
}

const TidyCommandSpec FindRequest::spec = {
    .name = "find",
    .group = "Look",
    .operands = "FOLDER",
    .summary = "What meets conditions in a folder",
    .details = "Lists the files and folders that meet all conditions, with their sizes, in the order of the "
               "folders or as "
               "--sort says. A folder that matches stands for what it holds in the totals, once. Sizes are "
               "compared in "
               "the size mode. Of names, letter case counts for regular expressions only.",
    .completes = TidyCompletes::folders,
    .shared = static_cast<unsigned>(TidyShared::scan),
    .options = options,
};

FindRequest FindRequest::read(const TidyArguments& arguments) {
    FindRequest request{.folder = arguments.onlyOperand(),
                        .conditions = {},
                        .ages = {.older = arguments.value("--older"),
                                 .newer = arguments.value("--newer"),
                                 .unopened = arguments.value("--unopened")},
                        .top = arguments.count("--top"),
                        .print0 = arguments.has("--print0"),
                        .scan = arguments.scan(),
                        .output = arguments.output()};
    SearchConditions& conditions = request.conditions;
    for (const std::string& text : arguments.values("--name"))
        conditions.names.push_back({TextCondition::Kind::contains, text});
    for (const std::string& text : arguments.values("--glob"))
        (text.find('/') == std::string::npos ? conditions.names : conditions.paths)
            .push_back({TextCondition::Kind::glob, text});
    for (const std::string& text : arguments.values("--regex"))
        conditions.names.push_back({TextCondition::Kind::expression, text});
    conditions.minimumSize = arguments.size("--larger");
    conditions.maximumSize = arguments.size("--smaller");
    conditions.categories = categoriesFrom(arguments, "--category");
    for (const std::string& word : arguments.values("--kind"))
        conditions.kinds.push_back(valueIn(kinds, word));
    for (const std::string& word : arguments.values("--flag"))
        conditions.flags.push_back(valueIn(flags, word));
    if (const auto order = arguments.value("--sort"))
        request.order = valueIn(orders, *order);
    if (request.print0 && request.output.json)
        throw TidyUsageError("--print0 and --json do not go together.");
    try {
        (void)SearchMatcher(conditionsOf(request, SizeMode::apparent, Date{})); // says what is no expression
    } catch (const SearchError& error) {
        throw TidyUsageError(harmless(error.what()));
    }
    return request;
}

TidyResult run(const FindRequest& request, TidyContext& context) {
    const SizeMode mode = context.sizeMode(request.scan);
    const SearchConditions conditions = conditionsOf(request, mode, context.services.now());
    ScanResult scan = context.scan(request.folder, request.scan);
    TidyResult result;
    try {
        const Matches matches = search(*scan.root, request, conditions, context);
        result.standardOutput = request.output.json
                                    ? document(matches, scan, context.output())
                                    : listed(matches, request, mode, context, context.output());
        if (matches.totals.undecidedCount > 0)
            result.standardError =
                "tarnwell-tidy: " + countedText(matches.totals.undecidedCount, "name", "names") +
                " would have taken the expression too long; not among the matches.\n";
    } catch (const SearchError& error) {
        if (error.kind() == SearchError::Kind::cancelled)
            throw TidyInterrupted();
        throw;
    }
    if (!request.output.json)
        result.standardError += context.unreadableText(scan, context.style(request.output));
    context.keep(std::move(scan));
    return result;
}

} // namespace tarnwell
