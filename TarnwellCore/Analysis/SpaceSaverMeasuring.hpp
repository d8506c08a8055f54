#pragma once

// Internal to the space-saver probe: the sizes of single items and their sum, the words that count them,
// and the places of a scanned tree that are left to others.

#include "TarnwellCore/Analysis/HomeFolder.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Scanning/PathOrder.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace tarnwell::SpaceSaverMeasuring {

/// Bytes of one item. When something is there that cannot be read, all is 0 and `isKnown` false.
struct ItemSize {
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;
    std::int64_t fileCount = 0;
    bool isKnown = true;
};

ItemSize sizeOf(const FileNode& node);

/// The node at a path, under whichever name of the home the tree shows it; null when the tree does not hold
/// it.
const FileNode* nodeAt(const std::filesystem::path& path, const TreeLookup& lookup, const HomeFolder& home);

/// Where sizes come from: a scanned tree where it can tell, else the disk.
struct Measurer {
    const HomeFolder& home;
    const DiskScanner& scanner;
    const ScanOptions& options;
    const TreeLookup& lookup;
    CancellationToken token;

    /// Nothing when the path is missing or a symbolic link: removing a link frees nothing. Throws
    /// ScanError (cancelled).
    std::optional<ItemSize> measure(const std::filesystem::path& path) const;
    /// The same from the disk alone.
    std::optional<ItemSize> measureOnDisk(const std::filesystem::path& path) const;
};

/// Whether the tree knows what lies in this folder: it was read and its contents have nodes.
bool isWalked(const FileNode& folder);

/// Adds an item to a finding: its path, its sizes and `items` to the count.
void add(SpaceSaverFinding& finding, const std::filesystem::path& path, const ItemSize& size,
         std::int64_t items);

/// Adds the node of a tree, as one item, to findings. The paths of a deep chain are as long, together, as the
/// square of its depth, so only the first are kept.
class NodeItems {
public:
    explicit NodeItems(SpaceSaverFinding& finding) : finding_(finding) {}
    void add(const FileNode& node);

private:
    SpaceSaverFinding& finding_;
    PathBudget budget_;
};

/// "1 file", "2 files".
std::string counted(std::int64_t count, std::string_view one, std::string_view many);
/// "30 days", "1 year".
std::string daysText(std::int64_t days);

/// Those of some paths that a tree holds below its root, and at its root on request.
class NodeSet {
public:
    explicit NodeSet(const FileNode& root, bool withRoot = false) : root_(root), withRoot_(withRoot) {}

    void insert(const std::filesystem::path& path);
    /// Adds a path below the home folder.
    void insertInHome(const HomeFolder& home, std::string_view relativePath);
    /// Adds the home's Trash and the folders that the system and installed software look after.
    void insertPlacesOfOthers(const HomeFolder& home);

    bool contains(const FileNode& node) const { return nodes_.contains(&node); }

private:
    const FileNode& root_;
    bool withRoot_;
    std::unordered_set<const FileNode*> nodes_;
};

} // namespace tarnwell::SpaceSaverMeasuring
