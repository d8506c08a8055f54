#include "TarnwellTidyKit/Commands/EvictCommand.hpp"

#include "TarnwellCore/Actions/CloudEviction.hpp"
#include "TarnwellTidyKit/Commands/OutermostPaths.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"

#include <algorithm>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// What could not be read on the way.
struct Unread {
    std::string text;
    std::optional<std::int64_t> count; // absent when no folder was read
};

/// The files to act on: those named, and in folders those that have something to free.
std::vector<std::string> filesOf(const EvictRequest& request, const std::vector<SyncedRoot>& roots,
                                 TidyContext& context, Unread& unread) {
    OutermostPaths places; // what lies in a folder that is named, too, is found there
    for (const std::string& typed : request.paths)
        places.insert(typedPath(typed));
    std::vector<std::string> files;
    for (const fs::path& path : places) {
        std::error_code error;
        if (fs::symlink_status(path, error).type() != fs::file_type::directory) {
            files.push_back(path.native());
            continue;
        }
        const ScanResult scan = context.scan(path.native(), {});
        unread.text += context.unreadableText(scan, context.style(request.output));
        unread.count = unread.count.value_or(0) + scan.stats.inaccessibleCount;
        const EvictionSummary summary = CloudEviction::evictableSummary(scan, roots);
        std::ranges::transform(summary.items, std::back_inserter(files), &EvictableItem::path);
        if (summary.items.empty())
            files.push_back(path.native()); // is refused, with the reason
    }
    return files;
}

} // namespace

const TidyCommandSpec EvictRequest::spec = {
    .name = "evict",
    .group = "Clear",
    .operands = "PATH...",
    .summary = "Free the local copies of cloud files",
    .details = "Removes the local copy of files in folders that a cloud service keeps in step; they stay in "
               "the cloud "
               "and come back when they are opened. Of a folder, all its files that have something to free.",
    .completes = TidyCompletes::paths,
    .shared = static_cast<unsigned>(TidyShared::act),
};

EvictRequest EvictRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(1, SIZE_MAX);
    return {.paths = arguments.operands(), .act = arguments.act(), .output = arguments.output()};
}

TidyResult run(const EvictRequest& request, TidyContext& context) {
    const std::vector<SyncedRoot> roots =
        context.services.syncedRoots(DiskScanner::normalize(context.services.home()));
    Unread unread;
    const std::vector<std::string> files = filesOf(request, roots, context, unread);
    const auto withUnreadable = [&](TidyResult result) {
        if (!request.output.json)
            result.standardError += unread.text;
        return result;
    };
    if (request.act.dryRun) {
        std::vector<TidyOutcome> planned;
        for (const std::string& file : files)
            planned.push_back({.source = file, .done = "free the local copy"});
        return withUnreadable(plannedResult(context, request.output, planned, unread.count));
    }
    const std::string question = "Free the local copies of " +
                                 countedText(static_cast<std::int64_t>(files.size()), "file", "files") +
                                 "? They stay in the cloud.";
    const auto consent = context.consent(request.act, questionText(question, files));
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    TidyOutcomes outcomes{.inaccessibleCount = unread.count};
    outcomes.actOnEach(context, files,
                       [&](const std::string& file) { return evicted(context, file, roots); });
    return withUnreadable(outcomes.result(context, request.output, {}));
}

} // namespace tarnwell
