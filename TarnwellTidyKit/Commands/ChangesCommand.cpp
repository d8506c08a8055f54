#include "TarnwellTidyKit/Commands/ChangesCommand.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/ChangesDigest.hpp"
#include "TarnwellTidyKit/Commands/StoredSnapshot.hpp"

#include <algorithm>
#include <utility>

namespace tarnwell {

namespace {

using Change = SnapshotDelta::Change;

constexpr TidyOptionSpec options[] = {
    {.name = "--since", .value = "WHEN", .help = "latest, previous, a date, an age or an ID (latest)"},
    {.name = "--min", .value = "SIZE", .help = "List changes from this size on (10MB)"},
    {.name = "--top", .value = "N", .help = "List the N largest changes (20)"},
    {.name = "--digest", .value = "", .help = "Tell what matters, in allocated sizes"},
};

std::string textOf(const SnapshotDelta& delta, const std::vector<const Change*>& causes,
                   const TidyStyle& style) {
    std::string text = style.painted(harmless(delta.after.rootPath), TidyRole::heading) + " since " +
                       dayText(delta.before.createdAt) + ": " + signedSizeText(delta.totalChange) + "\n";
    TidyTable table({TidyColumn::right, TidyColumn::left, TidyColumn::path}, 2);
    for (const Change* change : causes)
        table.row({{signedSizeText(change->delta), change->delta > 0 ? TidyRole::warning : TidyRole::good},
                   {std::string(rawValue(change->kind)), TidyRole::quiet},
                   {change->path}});
    table.write(text, style);
    if (causes.empty())
        text += "  No change is that large.\n";
    return text;
}

std::string documentOf(const SnapshotDelta& delta, const std::vector<const Change*>& causes, SizeMode mode,
                       const ScanStats& stats) {
    return tidyDocument([&](JSONWriter& json) {
        json.key("causes");
        json.beginArray();
        for (const Change* change : causes) {
            writeCause(json, rawValue(change->kind), change->path, change->before, change->after,
                       change->delta);
        }
        json.endArray();
        writeUnreadable(json, stats);
        json.key("path");
        json.string(delta.after.rootPath);
        writeSince(json, delta.before.id, delta.before.createdAt);
        json.key("sizeMode");
        json.string(rawValue(mode));
        json.key("total");
        json.integer(delta.totalChange);
    });
}

/// Categories and the volume's room are known of a snapshot whose scan is in the history.
SnapshotDigest digestSince(const ScanSnapshot& before, const ScanSnapshot& after, const ScanResult& scan,
                           std::int64_t minimum, const TidyContext& context) {
    const std::vector<ScanRecord> records = context.services.history().list();
    const ScanRecord now =
        ScanRecord::of(scan, context.services.volumeContaining(after.rootPath), context.services.now());
    return SnapshotDigest::of(before, after, recordOf(before, records), &now, minimum);
}

} // namespace

const TidyCommandSpec ChangesRequest::spec = {
    .name = "changes",
    .group = "Look",
    .operands = "FOLDER",
    .summary = "What grew since a snapshot",
    .details = "Compares the folder as it is now with a stored snapshot of it. A folder stands for what it "
               "holds, unless "
               "one item in it accounts for four fifths of its change. Snapshots are taken with tarnwell "
               "snapshot save and by a schedule; this stores none.",
    .completes = TidyCompletes::folders,
    .shared = static_cast<unsigned>(TidyShared::scan),
    .options = options,
};

ChangesRequest ChangesRequest::read(const TidyArguments& arguments) {
    ChangesRequest request{
        .folder = arguments.onlyOperand(), .scan = arguments.scan(), .output = arguments.output()};
    request.since = arguments.value("--since").value_or(request.since);
    request.minimum = arguments.size("--min").value_or(request.minimum);
    request.top = arguments.count("--top").value_or(request.top);
    request.digest = arguments.has("--digest");
    if (request.digest && (arguments.has("--top") || arguments.has("--size-mode")))
        throw TidyUsageError(
            "--digest tells allocated sizes, and how much it tells: --top and --size-mode do not "
            "go with it.");
    return request;
}

TidyResult run(const ChangesRequest& request, TidyContext& context) {
    const auto store = context.services.snapshotStore();
    const std::vector<ScanSnapshot> snapshots = store->list();
    // Said before the folder is read.
    const std::string root = DiskScanner::normalize(typedPath(request.folder));
    const ScanSnapshot& before = snapshotMeant(request.since, root, snapshots, context.services.now());
    ScanResult scan = context.scan(request.folder, request.scan);
    const SizeMode mode = context.sizeMode(request.scan);
    const ScanSnapshot after = storedSnapshotOf(scan);
    const std::int64_t minimum = std::max<std::int64_t>(request.minimum, 1);
    if (request.digest) {
        const SnapshotDigest digest = digestSince(before, after, scan, minimum, context);
        TidyResult result{.standardOutput = request.output.json
                                                ? digestDocument(digest, before.id, scan.stats)
                                                : digestText(digest, context.style(request.output))};
        if (!request.output.json)
            result.standardError = context.unreadableText(scan, context.style(request.output));
        context.keep(std::move(scan));
        return result;
    }
    const SnapshotDelta delta = SnapshotDelta::compare(before, after, minimum, mode);
    std::vector<const Change*> causes = snapshotCauses(delta);
    causes.resize(std::min(causes.size(), static_cast<std::size_t>(request.top)));
    TidyResult result;
    const TidyStyle style = context.style(request.output);
    if (request.output.json)
        result.standardOutput = documentOf(delta, causes, mode, scan.stats);
    else
        result = {.standardOutput = textOf(delta, causes, style),
                  .standardError = context.unreadableText(scan, style)};
    context.keep(std::move(scan));
    return result;
}

} // namespace tarnwell
