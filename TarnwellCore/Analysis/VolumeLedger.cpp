#include "TarnwellCore/Analysis/VolumeLedger.hpp"

#include "TarnwellCore/Analysis/FreedSpace.hpp"
#include "TarnwellCore/Platform/Volumes.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <stdexcept>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::array<std::string_view, ledgerEntryCount> texts = {
    "files that were scanned",
    "blocks that several of them share, and what compression saves",
    "blocks of folders",
    "what could not be read",
    "what was left out",
    "other things mounted there",
    "parts of the volume outside of the scan",
    "snapshots",
    "what the system may purge",
    "not explained",
    "counted twice, or changed since",
};

/// What a walk over the tree finds, its nodes in no particular order.
struct Findings {
    std::vector<const FileNode*> excluded;
    std::vector<const FileNode*> mounted;
    /// Of those that are mounted, what lies on other file systems and was measured all the same.
    std::vector<const FileNode*> foreign;
    std::int64_t foreignBytes = 0;
    std::int64_t foreignFiles = 0;
    std::int64_t foreignFolders = 0; // themselves included
};

Findings walk(const FileNode& root, const std::function<bool(const FileNode&)>& isForeign) {
    Findings findings;
    root.forEachDescendant([&](const FileNode& node) {
        if (node.flags.contains(FileNodeFlags::excluded)) {
            findings.excluded.push_back(&node);
            return false;
        }
        if (&node == &root || !node.isDirectory() || !node.flags.contains(FileNodeFlags::mountPoint))
            return true;
        findings.mounted.push_back(&node);
        if (!isForeign(node))
            return true;
        findings.foreign.push_back(&node);
        addChecked(findings.foreignBytes, node.allocatedSize);
        findings.foreignFiles += node.fileCount();
        findings.foreignFolders += node.directoryCount() + std::int64_t{1};
        return false;
    });
    return findings;
}

std::vector<std::string> pathsOf(std::span<const FileNode* const> nodes) {
    std::vector<std::string> paths;
    for (const FileNode* node : nodes.first(std::min(nodes.size(), LedgerLine::largestNamedCount)))
        paths.push_back(node->path());
    std::ranges::sort(paths);
    return paths;
}

std::optional<std::int64_t> measured(const std::string& path, const ScanOptions& scanned,
                                     const CancellationToken& token) {
    const auto metadata = mayNeverAnswer(path) ? std::nullopt : PathMetadata::lstat(path);
    if (!metadata)
        return std::nullopt;
    if (!metadata->isDirectory)
        return metadata->allocatedSize;
    ScanOptions options;
    options.applySystemExclusions = false;
    options.workerCount = scanned.workerCount;
    options.deduplicateHardlinks = scanned.deduplicateHardlinks;
    ScanEngine engine(path, options, false);
    const auto registration = token.onCancel([&] { engine.cancel(); });
    try {
        const ScanResult result = engine.run();
        std::int64_t bytes = result.stats.totalAllocatedSize;
        addChecked(bytes, result.folderBytes.value_or(0));
        const bool isWhole = result.stats.inaccessibleCount == 0 && result.stats.inaccessibleEntryCount == 0;
        return isWhole ? std::optional(bytes) : std::nullopt;
    } catch (const ScanError&) {
        if (token.isCancelled())
            throw;
        return std::nullopt;
    }
}

class LedgerMaker {
public:
    LedgerMaker(const ScanResult& scan, const LedgerServices& services, const CancellationToken& token)
        : scan_(scan), root_(*scan.root), services_(services), token_(token) {}

    VolumeLedger make() {
        const std::string path = root_.path();
        VolumeLedger ledger;
        ledger.volume = services_.volumeContaining(path);
        const std::string volumePath = ledger.volume ? ledger.volume->path : path;
        const auto usage = ledger.volume ? services_.usage(path) : std::nullopt;
        if (usage)
            ledger.used = usage->used;
        const auto isForeign = [&](const FileNode& node) {
            return !services_.isPartOf(node.path(), volumePath);
        };
        const Findings findings = walk(root_, isForeign);
        for (int entry = 0; entry < ledgerEntryCount; ++entry)
            lines_.push_back({.entry = static_cast<LedgerEntry>(entry)});

        line(LedgerEntry::measured).bytes =
            std::max<std::int64_t>(0, checkedSubtract(root_.allocatedSize, findings.foreignBytes));
        line(LedgerEntry::measured).count = root_.fileCount() - findings.foreignFiles;
        line(LedgerEntry::sharedTwice).isSubtracted = true;
        line(LedgerEntry::sharedTwice).bytes = sharedTwice(findings);
        line(LedgerEntry::folders).bytes = scan_.folderBytes;
        line(LedgerEntry::folders).count = root_.directoryCount() + std::int64_t{1} - findings.foreignFolders;
        fillUnreadable();
        fillExcluded(findings.excluded, volumePath);
        fillMounted(findings.mounted, isForeign);
        if (usage && usage->isWhole && volumePath == path)
            line(LedgerEntry::outside).bytes = 0;
        if (usage) {
            line(LedgerEntry::snapshots).bytes = usage->snapshots;
            line(LedgerEntry::purgeable).bytes = usage->purgeable;
        }
        line(LedgerEntry::excess).isSubtracted = true;
        if (ledger.used)
            balance(*ledger.used);
        ledger.lines = std::move(lines_);
        return ledger;
    }

private:
    LedgerLine& line(LedgerEntry entry) { return lines_[static_cast<std::size_t>(entry)]; }

    std::optional<std::int64_t> sharedTwice(const Findings& findings) const {
        if (!scan_.options.keepsSharing)
            return std::nullopt;
        const FileNode* const all = &root_;
        const FreedSpace freed(scan_);
        // Different file systems share nothing.
        const std::int64_t elsewhere = findings.foreignBytes - freed.of(findings.foreign).atMost;
        return std::max<std::int64_t>(0, root_.allocatedSize - freed.of({&all, 1}).atMost - elsewhere);
    }

    void fillUnreadable() {
        LedgerLine& unreadable = line(LedgerEntry::unreadable);
        unreadable.count = scan_.stats.inaccessibleCount + scan_.stats.inaccessibleEntryCount;
        const auto& paths = scan_.inaccessiblePaths;
        unreadable.paths.assign(
            paths.begin(),
            paths.begin() + std::min<std::ptrdiff_t>(std::ssize(paths), LedgerLine::largestNamedCount));
        if (unreadable.count == 0)
            unreadable.bytes = 0;
    }

    void fillExcluded(std::span<const FileNode* const> excluded, const std::string& volumePath) {
        LedgerLine& left = line(LedgerEntry::excluded);
        left.count = std::ssize(excluded);
        left.paths = pathsOf(excluded);
        // Hidden entries leave no trace in the tree.
        if (scan_.options.excludeHidden || (!excluded.empty() && !services_.measure))
            return;
        std::int64_t bytes = 0;
        for (const FileNode* node : excluded) {
            const std::string path = node->path();
            if (liesElsewhere(path, volumePath))
                continue;
            const auto part = services_.measure(path, scan_.options, token_);
            if (!part)
                return;
            addChecked(bytes, *part);
        }
        left.bytes = bytes;
    }

    /// On another file system, such as /dev.
    bool liesElsewhere(const std::string& path, const std::string& volumePath) const {
        if (mayNeverAnswer(path))
            return false;
        const auto there = PathMetadata::lstat(path);
        const auto here = PathMetadata::lstat(root_.path());
        return there && here && there->deviceID != here->deviceID && !services_.isPartOf(path, volumePath);
    }

    void fillMounted(std::span<const FileNode* const> mounted,
                     const std::function<bool(const FileNode&)>& isForeign) {
        LedgerLine& others = line(LedgerEntry::mounted);
        others.count = std::ssize(mounted);
        others.paths = pathsOf(mounted);
        // Those of this file system that were crossed into have been measured.
        if (scan_.options.crossFilesystemBoundaries ||
            std::ranges::all_of(mounted, [&](const FileNode* node) { return isForeign(*node); }))
            others.bytes = 0;
    }

    /// Gives what is left, or what is too much, its line.
    void balance(std::int64_t used) {
        std::int64_t rest = used;
        for (const LedgerLine& each : lines_)
            rest =
                checkedSubtract(rest, each.isSubtracted ? -each.bytes.value_or(0) : each.bytes.value_or(0));
        line(LedgerEntry::unexplained).bytes = std::max<std::int64_t>(rest, 0);
        line(LedgerEntry::excess).bytes = std::max<std::int64_t>(-rest, 0);
    }

    const ScanResult& scan_;
    const FileNode& root_;
    const LedgerServices& services_;
    const CancellationToken& token_;
    std::vector<LedgerLine> lines_;
};

} // namespace

std::string_view text(LedgerEntry entry) {
    return texts[static_cast<std::size_t>(entry)];
}

LedgerServices LedgerServices::live(bool measuresExcluded) {
    LedgerServices services{
        .volumeContaining = [](const std::string& path) { return DiskInfo::volumeContaining(path); },
        .usage = volumeUsage,
        .isPartOf = isPartOfFileSystem,
        .measure = {}};
    if (measuresExcluded)
        services.measure = measured;
    return services;
}

VolumeLedger makeVolumeLedger(const ScanResult& scan, const LedgerServices& services,
                              const CancellationToken& token) {
    if (scan.root == nullptr)
        throw std::invalid_argument("a ledger needs a scanned tree");
    return LedgerMaker(scan, services, token).make();
}

} // namespace tarnwell
