// The Downloads folder: older installers of the same application, large and forgotten downloads.

#include "TarnwellCore/Analysis/InstallerStem.hpp"
#include "TarnwellCore/Analysis/SpaceSaverMeasuring.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <algorithm>
#include <map>
#include <unordered_set>

namespace tarnwell {

using namespace SpaceSaverMeasuring;

namespace {

constexpr std::int64_t largeDownload = 100'000'000;
constexpr std::int64_t forgottenDays = 90;

struct Installer {
    const FileNode* node;
    InstallerName name;
};

/// Whether `a` is the older of two installers of one application. Version numbers decide when both have
/// one, else the time of modification, then the name.
bool isOlder(const Installer& a, const Installer& b, bool byVersion) {
    if (byVersion && a.name.version != b.name.version)
        return a.name.version < b.name.version;
    if (a.node->modificationSeconds != b.node->modificationSeconds)
        return a.node->modificationSeconds < b.node->modificationSeconds;
    return a.node->name() < b.node->name();
}

/// The installers among the downloads that a newer one of the same application makes superfluous. An
/// installer for another processor is superfluous only when its version is older.
std::vector<const FileNode*> olderInstallers(const std::vector<const FileNode*>& downloads) {
    std::map<std::string, std::vector<Installer>> byApplication;
    for (const FileNode* node : downloads) {
        if (!isInstaller(node->name()))
            continue;
        InstallerName name = installerName(node->name());
        std::vector<Installer>& group = byApplication[name.stem];
        group.push_back({node, std::move(name)});
    }

    std::vector<const FileNode*> older;
    for (const auto& [stem, group] : byApplication) {
        const bool byVersion =
            std::ranges::none_of(group, [](const Installer& each) { return each.name.version.empty(); });
        for (const Installer& each : group) {
            const bool isReplaced = std::ranges::any_of(group, [&](const Installer& other) {
                const bool isOlderVersion = byVersion && each.name.version < other.name.version;
                return isOlderVersion ||
                       (each.name.variant == other.name.variant && isOlder(each, other, byVersion));
            });
            if (isReplaced)
                older.push_back(each.node);
        }
    }
    return older;
}

/// Whether nothing of the download was modified since then; folders count with all they hold, and with
/// their own times, which tell when an archive with old files was unpacked.
bool isForgotten(const FileNode& download, double now) {
    const double limit = static_cast<double>(forgottenDays) * 86'400.0;
    if (download.isDirectory() && !isWalked(download))
        return false;
    bool isOld = true;
    download.forEachDescendant([&](const FileNode& node) {
        isOld = isOld && node.modificationSeconds != FileNode::missingTime &&
                now - node.modificationSeconds > limit;
        return isOld;
    });
    return isOld;
}

bool isDownload(const FileNode& node) {
    return !node.name().starts_with('.') && !node.isSymlink() &&
           !node.flags.contains(FileNodeFlags::excluded) &&
           !node.flags.contains(FileNodeFlags::inaccessible) && !node.flags.contains(FileNodeFlags::dataless);
}

SpaceSaverFinding findingOf(std::vector<const FileNode*> nodes) {
    std::ranges::stable_sort(nodes, [](const FileNode* a, const FileNode* b) { return a->size > b->size; });
    SpaceSaverFinding finding;
    for (const FileNode* node : nodes)
        add(finding, node->path(), sizeOf(*node), 1);
    finding.safety = CleanupSafety::reviewNeeded;
    finding.action = SpaceSaverActions::Trash{};
    return finding;
}

} // namespace

std::vector<SpaceSaverFinding> SpaceSaverProbe::downloadsFindings(const DiskScanner& scanner,
                                                                  const ScanOptions& options,
                                                                  const TreeLookup& lookup, Date now,
                                                                  const CancellationToken& token) const {
    const std::filesystem::path path = home / "Downloads";
    const FileNode* folder = nodeAt(path, lookup, HomeFolder(home));
    std::optional<ScanResult> ownScan; // keeps the tree while it is looked at
    if (folder == nullptr || !isWalked(*folder)) {
        try {
            ownScan = scanner.scan(path, options, nullptr, token).get();
        } catch (const ScanError& error) {
            if (error.kind() == ScanError::Kind::cancelled)
                throw;
            return {}; // nothing there, or nothing that may be looked at
        }
        folder = ownScan->root.get();
    }

    std::vector<const FileNode*> downloads;
    std::ranges::copy_if(folder->children(), std::back_inserter(downloads),
                         [](const FileNode* node) { return isDownload(*node); });
    const std::vector<const FileNode*> older = olderInstallers(downloads);
    const std::unordered_set<const FileNode*> isReported(older.begin(), older.end());
    std::erase_if(downloads, [&](const FileNode* node) {
        return isReported.contains(node) ||
               (node->size < largeDownload && !isForgotten(*node, referenceSeconds(now)));
    });

    std::vector<SpaceSaverFinding> findings;
    SpaceSaverFinding installers = findingOf(older);
    installers.id = rawValue(SpaceSaverKind::installerArchives);
    installers.kind = SpaceSaverKind::installerArchives;
    installers.title = "Older Installers";
    installers.subtitle = counted(installers.itemCount, "installer", "installers") +
                          " with a newer version beside it in Downloads";
    installers.explanation =
        "Several downloads share a name once version numbers are stripped, which usually means you kept "
        "older installers of the same app.";
    installers.category = FileCategory::packagesInstallers;
    if (isWorthReporting(installers))
        findings.push_back(std::move(installers));

    SpaceSaverFinding clutter = findingOf(std::move(downloads));
    clutter.id = rawValue(SpaceSaverKind::downloadsClutter);
    clutter.kind = SpaceSaverKind::downloadsClutter;
    clutter.title = "Downloads";
    clutter.subtitle =
        counted(clutter.itemCount, "download", "downloads") + " over 100 MB or untouched for 90 days";
    clutter.explanation =
        "Most downloads are used once and forgotten. Move what you still need to where it belongs; "
        "most of the rest can be downloaded again.";
    if (isWorthReporting(clutter))
        findings.push_back(std::move(clutter));
    return findings;
}

} // namespace tarnwell
