#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"

#include "TarnwellCore/Analysis/SpaceSaverMeasuring.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/PathOrder.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <algorithm>
#include <map>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

using namespace SpaceSaverMeasuring;

namespace {

/// What counts as left alone for long among large files, and how many of them are worth a list.
constexpr std::int64_t oldFileDays = 365;
constexpr std::size_t largeFileLimit = 100;

} // namespace

TreeLookup treeLookup(std::shared_ptr<const FileNode> root) {
    if (root == nullptr)
        return nullptr;
    return [root = std::move(root)](const fs::path& path) { return root->node(path.native()); };
}

bool SpaceSaverProbe::isWorthReporting(const SpaceSaverFinding& finding) const {
    if (finding.paths.empty())
        return false;
    if (!finding.sizeIsKnown)
        return true;
    const bool isEmpty = finding.size == 0 && finding.allocatedSize == 0 && finding.itemCount == 0;
    return !isEmpty && finding.size >= minimumSize;
}

std::optional<SpaceSaverFinding>
SpaceSaverProbe::evaluate(const DirectoryRule& rule, const DiskScanner& scanner, const ScanOptions& options,
                          const TreeLookup& lookup, const CancellationToken& token) const {
    struct Item {
        fs::path path;
        fs::path resolved; // two spellings of one place are one place
        ItemSize size;
    };
    const HomeFolder bothHomes(home);
    const Measurer measurer{bothHomes, scanner, options, lookup, token};

    // Shorter paths first: what lies inside a path that counted is then not even measured. A path that does
    // not count, a link say, hides nothing.
    std::vector<std::size_t> order(rule.relativePaths.size());
    std::ranges::generate(order, [next = std::size_t{0}]() mutable { return next++; });
    std::ranges::stable_sort(order, {}, [&](std::size_t index) { return rule.relativePaths[index].size(); });

    std::vector<std::optional<Item>> items(order.size()); // in the order of the rule's paths
    for (const std::size_t index : order) {
        const fs::path path = home / rule.relativePaths[index];
        fs::path resolved = resolveLinks(path);
        if (std::ranges::any_of(items,
                                [&](const auto& item) { return item && isWithin(resolved, item->resolved); }))
            continue;
        const auto size = measurer.measure(path);
        if (!size)
            continue;
        // Through a link in its middle, a shorter path can lead inside a longer one.
        for (auto& item : items)
            if (item && isWithin(item->resolved, resolved))
                item.reset();
        items[index] = Item{path, std::move(resolved), *size};
    }

    SpaceSaverFinding finding;
    finding.id = rawValue(rule.kind);
    finding.kind = rule.kind;
    finding.title = rule.title;
    finding.subtitle = rule.subtitle;
    finding.explanation = rule.explanation;
    finding.safety = rule.safety;
    finding.action = rule.action;
    finding.category = rule.category;
    for (const auto& item : items)
        if (item)
            add(finding, item->path, item->size, item->size.fileCount);
    if (!isWorthReporting(finding))
        return std::nullopt;
    return finding;
}

namespace {

/// Whether this is the home, a folder that holds it, or a folder directly in it.
bool isHomeOrItsMainFolder(const FileNode& node, const HomeFolder& home) {
    // Most paths are too long for that, and need not be made.
    const std::size_t length = pathLength(node);
    if (std::ranges::none_of(home.spellings(), [&](const fs::path& spelling) {
            return length <= spelling.native().size() + 1 + node.name().size();
        }))
        return false;
    const fs::path path = node.path();
    return home.isWithin(path) || (node.isDirectory() && home.holdsDirectly(path));
}

/// Whether moving a matched item to the Trash would free its space: not what lies in the Trash already, not
/// what the system looks after, no placeholder, whose removal would take the copy in the cloud.
bool canBeTrashed(const FileNode& node, const NodeSet& placesOfOthers) {
    if (node.flags.intersects(FileNodeFlags::dataless | FileNodeFlags::symlink | FileNodeFlags::excluded |
                              FileNodeFlags::inaccessible | FileNodeFlags::hardlinkDuplicate))
        return false;
    for (const FileNode* place = &node; place != nullptr; place = place->parent())
        if (placesOfOthers.contains(*place) ||
            (place->parent() != nullptr && place->name().starts_with(".Trash")))
            return false;
    return true;
}

} // namespace

std::vector<SpaceSaverFinding>
SpaceSaverProbe::cleanupRuleFindings(const std::vector<RuleMatch>& matches) const {
    std::vector<SpaceSaverFinding> findings;
    std::map<std::string, int> timesSeen; // a stored list may name a rule twice
    const HomeFolder bothHomes(home);
    for (const RuleMatch& match : matches) {
        if (match.nodes.empty())
            continue;
        NodeSet placesOfOthers(match.nodes.front()->root());
        placesOfOthers.insertPlacesOfOthers(bothHomes);
        SpaceSaverFinding finding;
        finding.id = std::string(rawValue(SpaceSaverKind::cleanupRule)) + ":" + match.rule.id;
        if (const int times = ++timesSeen[match.rule.id]; times > 1)
            finding.id += "#" + std::to_string(times);
        finding.kind = SpaceSaverKind::cleanupRule;
        finding.title = match.rule.name;
        finding.subtitle = match.rule.conditionSummary();
        finding.explanation =
            "Everything here matches a cleanup rule of yours. A rule knows names, sizes and dates, "
            "not what a file means to you: look through the list first.";
        finding.safety = CleanupSafety::reviewNeeded;
        finding.action = SpaceSaverActions::Trash{};
        if (match.rule.categories.size() == 1)
            finding.category = match.rule.categories.front();
        NodeItems items(finding);
        for (const FileNode* node : match.nodes) {
            if (!canBeTrashed(*node, placesOfOthers))
                continue;
            items.add(*node);
            if (node->parent() == nullptr || isHomeOrItsMainFolder(*node, bothHomes)) {
                // A rule so wide that it takes the scanned folder, the home or one of its main folders, such
                // as Downloads, as a whole must not end in the Trash.
                finding.safety = CleanupSafety::caution;
                finding.action = SpaceSaverActions::OpenLocation{};
            }
        }
        if (finding.itemCount > 0 && isWorthReporting(finding))
            findings.push_back(std::move(finding));
    }
    return findings;
}

std::vector<SpaceSaverFinding> SpaceSaverProbe::runSteps(const Request& request,
                                                         const CancellationToken& token) const {
    const std::shared_ptr<FileNode> root = request.scanResult ? request.scanResult->root : nullptr;
    const ScanOptions options = request.scanResult ? request.scanResult->options : ScanOptions();
    const TreeLookup lookup = request.treeLookup ? request.treeLookup : treeLookup(root);

    std::vector<SpaceSaverFinding> all;
    const auto deliver = [&](std::vector<SpaceSaverFinding> found) {
        if (token.isCancelled())
            throw ScanError::cancelled();
        if (found.empty())
            return;
        if (request.onPartial)
            request.onPartial(found);
        all.insert(all.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
    };
    const auto deliverOne = [&](std::optional<SpaceSaverFinding> found) {
        std::vector<SpaceSaverFinding> findings;
        if (found)
            findings.push_back(std::move(*found));
        deliver(std::move(findings));
    };

    deliver({});
    // What is in memory comes first: a viewer has something to show while folders are being measured.
    if (root != nullptr) {
        deliver(cleanupRuleFindings(
            RuleEvaluator::evaluate(request.rules, *root, request.now, home.native(), token)));
        deliver(nodeModulesFindings(*root));
        deliver(largeFileFindings(*root, request.largeFileThreshold, request.oldThreshold, oldFileDays,
                                  largeFileLimit, request.now));
    }
    for (const DirectoryRule& rule : directoryRules())
        deliverOne(evaluate(rule, request.scanner, options, lookup, token));
    deliver(downloadsFindings(request.scanner, options, lookup, request.now, token));
    deliverOne(applicationCachesFinding(request.scanner, options, lookup, token));
    deliverOne(trashFinding(request.scanner, token));
    if (request.includeSnapshots)
        deliverOne(snapshotFinding());
    return sorted(std::move(all));
}

std::future<std::vector<SpaceSaverFinding>> SpaceSaverProbe::run(Request request,
                                                                 CancellationToken token) const {
    return runInBackground(
        [probe = *this, request = std::move(request), token] { return probe.runSteps(request, token); });
}

} // namespace tarnwell
