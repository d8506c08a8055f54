// The probes that look for patterns in a scanned tree: node_modules folders and large files.

#include "TarnwellCore/Analysis/SpaceSaverMeasuring.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Classification/FileClassifier.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"

#include <algorithm>

namespace tarnwell {

using namespace SpaceSaverMeasuring;

namespace {

constexpr std::string_view nodeModulesName = "node_modules";

/// The Trash as it is called in a home or on a volume: ".Trash", ".Trashes", ".Trash-501".
bool isTrash(const FileNode& node) {
    return node.name().starts_with(".Trash");
}

bool isSoftware(FileCategory category) {
    return category == FileCategory::applications || category == FileCategory::system;
}

bool isPackageFolder(const FileNode& node) {
    return node.isDirectory() && (node.isPackage() || FileClassifier::isPackage(node.name()));
}

/// Whether the folder holds what its package manager needs to fill it again; a "lib" without a project is
/// where globally installed tools live.
bool belongsToProject(const FileNode& nodeModules) {
    const FileNode* parent = nodeModules.parent();
    return parent == nullptr || parent->displayName() != "lib" ||
           std::ranges::any_of(parent->children(),
                               [](const FileNode* sibling) { return sibling->name() == "package.json"; });
}

/// The time of the latest change to the file or, for a package, to anything in it; missing when it cannot
/// be told.
double latestModification(const FileNode& node) {
    if (node.isDirectory() && !isWalked(node))
        return FileNode::missingTime;
    double latest = FileNode::missingTime;
    node.forEachDescendant([&](const FileNode& inner) {
        latest = std::max(latest, inner.modificationSeconds);
        return true;
    });
    return latest;
}

bool isLarger(const FileNode* a, const FileNode* b) {
    return a->size > b->size;
}

/// The largest of the files, made into a finding.
void fill(SpaceSaverFinding& finding, std::vector<const FileNode*> files, std::size_t limit) {
    std::ranges::stable_sort(files, isLarger);
    files.resize(std::min(files.size(), limit));
    NodeItems items(finding);
    for (const FileNode* file : files)
        items.add(*file);
    finding.safety = CleanupSafety::reviewNeeded;
    finding.action = SpaceSaverActions::Trash{};
}

} // namespace

std::vector<SpaceSaverFinding> SpaceSaverProbe::nodeModulesFindings(const FileNode& in) const {
    const HomeFolder bothHomes(home);
    NodeSet leftOut(in);
    leftOut.insertPlacesOfOthers(bothHomes);
    leftOut.insertInHome(bothHomes, "Library");
    NodeSet homes(in, true);
    homes.insertInHome(bothHomes, "");

    std::vector<const FileNode*> folders;
    in.forEachDescendant([&](const FileNode& node) {
        if (!node.isDirectory() || leftOut.contains(node) || isTrash(node))
            return false;
        if (&node != &in &&
            (isPackageFolder(node) || (node.name().starts_with('.') && homes.contains(*node.parent()))))
            return false;
        if (node.displayName() != nodeModulesName)
            return true;
        if (!node.flags.contains(FileNodeFlags::excluded) &&
            !node.flags.contains(FileNodeFlags::inaccessible) && belongsToProject(node))
            folders.push_back(&node);
        return false;
    });
    std::ranges::stable_sort(folders, isLarger);

    SpaceSaverFinding finding;
    NodeItems items(finding);
    for (const FileNode* folder : folders)
        items.add(*folder);
    finding.id = rawValue(SpaceSaverKind::nodeModules);
    finding.kind = SpaceSaverKind::nodeModules;
    finding.title = "node_modules Folders";
    finding.subtitle =
        counted(finding.itemCount, "folder", "folders") + " of installed packages in your projects";
    finding.explanation =
        "Each project keeps its own copy of every package it uses. Deleting a folder costs one "
        "install the next time you work on that project.";
    finding.safety = CleanupSafety::safe;
    finding.action = SpaceSaverActions::Trash{};
    finding.category = FileCategory::developer;
    if (!isWorthReporting(finding))
        return {};
    return {std::move(finding)};
}

std::vector<SpaceSaverFinding>
SpaceSaverProbe::largeFileFindings(const FileNode& in, std::int64_t largeThreshold, std::int64_t oldThreshold,
                                   std::int64_t oldDays, std::size_t limit, Date now) const {
    const HomeFolder bothHomes(home);
    NodeSet leftOut(in);
    leftOut.insertPlacesOfOthers(bothHomes);
    for (const DirectoryRule& rule : directoryRules())
        for (const std::string& relativePath : rule.relativePaths)
            leftOut.insertInHome(bothHomes, relativePath);

    const double oldSeconds = static_cast<double>(oldDays) * 86'400.0;
    const double reference = referenceSeconds(now);
    const std::int64_t smallest = std::min(largeThreshold, oldThreshold);
    std::vector<const FileNode*> large;
    std::vector<const FileNode*> old;
    const auto consider = [&](const FileNode& node) {
        if (node.size < smallest || isSoftware(node.category))
            return;
        const double modified = node.size >= oldThreshold ? latestModification(node) : FileNode::missingTime;
        if (modified != FileNode::missingTime && reference - modified > oldSeconds)
            old.push_back(&node);
        else if (node.size >= largeThreshold)
            large.push_back(&node);
    };
    // Marks of files whose removal frees nothing here, or that are no files at all.
    constexpr std::array notFiles{FileNodeFlags::symlink,      FileNodeFlags::hardlinkDuplicate,
                                  FileNodeFlags::inaccessible, FileNodeFlags::excluded,
                                  FileNodeFlags::special,      FileNodeFlags::dataless};
    in.forEachDescendant([&](const FileNode& node) {
        if (!node.isDirectory() && node.size < smallest)
            return false;
        if (leftOut.contains(node) || isTrash(node))
            return false;
        if (node.isDirectory() && (&node == &in || !isPackageFolder(node)))
            return node.name() != nodeModulesName;
        if (std::ranges::none_of(notFiles, [&](FileNodeFlags flag) { return node.flags.contains(flag); }))
            consider(node);
        return false;
    });

    std::vector<SpaceSaverFinding> findings;
    SpaceSaverFinding largeFiles;
    fill(largeFiles, std::move(large), limit);
    largeFiles.id = rawValue(SpaceSaverKind::largeFiles);
    largeFiles.kind = SpaceSaverKind::largeFiles;
    largeFiles.title = "Large Files";
    largeFiles.subtitle = counted(largeFiles.itemCount, "very large file", "very large files");
    largeFiles.explanation =
        "Each of these takes " + ByteFormatter::string(largeThreshold, "0 bytes") +
        " or more. A single forgotten video, archive or virtual machine often frees more than "
        "all caches together.";
    if (isWorthReporting(largeFiles))
        findings.push_back(std::move(largeFiles));

    SpaceSaverFinding oldFiles;
    fill(oldFiles, std::move(old), limit);
    oldFiles.id = rawValue(SpaceSaverKind::oldLargeFiles);
    oldFiles.kind = SpaceSaverKind::oldLargeFiles;
    oldFiles.title = "Old Large Files";
    oldFiles.subtitle = counted(oldFiles.itemCount, "file", "files") + " over " +
                        ByteFormatter::string(oldThreshold, "0 bytes") + ", unmodified for " +
                        daysText(oldDays);
    oldFiles.explanation =
        "Large, and nobody has changed them for a long time. Copy what you want to keep to another "
        "disk, then remove the rest.";
    if (isWorthReporting(oldFiles))
        findings.push_back(std::move(oldFiles));
    return findings;
}

} // namespace tarnwell
