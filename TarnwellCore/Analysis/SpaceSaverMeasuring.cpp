#include "TarnwellCore/Analysis/SpaceSaverMeasuring.hpp"

#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <array>

namespace fs = std::filesystem;

namespace tarnwell::SpaceSaverMeasuring {

namespace {

/// Top folders whose contents the system and installed software look after, on macOS and on Linux.
constexpr std::array systemFolders{
    "/Applications", "/Library", "/System",  "/bin",  "/boot", "/cores", "/dev",  "/etc", "/lib", "/lib32",
    "/lib64",        "/opt",     "/private", "/proc", "/run",  "/sbin",  "/snap", "/sys", "/usr", "/var",
};

} // namespace

ItemSize sizeOf(const FileNode& node) {
    return {.size = node.size,
            .allocatedSize = node.allocatedSize,
            .reclaimableSize = node.reclaimableSize,
            .fileCount = node.fileCount()};
}

bool isWalked(const FileNode& folder) {
    return folder.isDirectory() && !folder.flags.contains(FileNodeFlags::excluded) &&
           !folder.flags.contains(FileNodeFlags::inaccessible) &&
           !folder.flags.contains(FileNodeFlags::collapsed) &&
           !(folder.flags.contains(FileNodeFlags::mountPoint) && folder.children().empty());
}

const FileNode* nodeAt(const fs::path& path, const TreeLookup& lookup, const HomeFolder& home) {
    if (!lookup)
        return nullptr;
    for (const fs::path& spelling : home.spellingsOf(path))
        if (const FileNode* node = lookup(spelling))
            return node;
    return nullptr;
}

std::optional<ItemSize> Measurer::measure(const fs::path& path) const {
    const FileNode* node = nodeAt(path, lookup, home);
    if (node == nullptr)
        return measureOnDisk(path);
    if (node->isSymlink())
        return std::nullopt;
    if (node->flags.contains(FileNodeFlags::inaccessible))
        return ItemSize{.isKnown = false};
    // A folder that the scan passed over has no sums in the tree; a collapsed one has.
    if (!node->isDirectory() || node->flags.contains(FileNodeFlags::collapsed) || isWalked(*node))
        return sizeOf(*node);
    return measureOnDisk(path);
}

std::optional<ItemSize> Measurer::measureOnDisk(const fs::path& path) const {
    if (token.isCancelled())
        throw ScanError::cancelled();
    const auto metadata = PathMetadata::lstat(path.native());
    if (!metadata || metadata->isSymlink)
        return std::nullopt;
    try {
        const DirectoryMeasurement measured = scanner.measure(path, options, token).get();
        if (measured.isMissing)
            return std::nullopt;
        return ItemSize{.size = measured.logicalSize,
                        .allocatedSize = measured.allocatedSize,
                        .reclaimableSize = measured.reclaimableSize,
                        .fileCount = measured.fileCount};
    } catch (const ScanError& failure) {
        switch (failure.kind()) {
        case ScanError::Kind::cancelled:
            throw;
        case ScanError::Kind::rootNotReadable:
            return ItemSize{.isKnown = false};
        case ScanError::Kind::rootNotFound:
        case ScanError::Kind::rootNotADirectory:
            return std::nullopt; // gone or replaced meanwhile
        }
        throw;
    }
}

namespace {

void addSizes(SpaceSaverFinding& finding, const ItemSize& size, std::int64_t items) {
    addChecked(finding.size, size.size);
    addChecked(finding.allocatedSize, size.allocatedSize);
    addChecked(finding.reclaimableSize, size.reclaimableSize);
    addChecked(finding.itemCount, items);
    finding.sizeIsKnown = finding.sizeIsKnown && size.isKnown;
}

} // namespace

void add(SpaceSaverFinding& finding, const fs::path& path, const ItemSize& size, std::int64_t items) {
    finding.paths.push_back(path);
    addSizes(finding, size, items);
}

void NodeItems::add(const FileNode& node) {
    addSizes(finding_, sizeOf(node), 1);
    if (budget_.take(node))
        finding_.paths.push_back(node.url());
    else
        ++finding_.furtherPathCount;
}

std::string counted(std::int64_t count, std::string_view one, std::string_view many) {
    std::string text = std::to_string(count);
    text += ' ';
    text += count == 1 ? one : many;
    return text;
}

std::string daysText(std::int64_t days) {
    return days != 0 && days % 365 == 0 ? counted(days / 365, "year", "years") : counted(days, "day", "days");
}

void NodeSet::insert(const fs::path& path) {
    const FileNode* node = root_.node(path.native());
    if (node != nullptr && (withRoot_ || node != &root_))
        nodes_.insert(node);
}

void NodeSet::insertInHome(const HomeFolder& home, std::string_view relativePath) {
    for (const fs::path& spelling : home.spellings())
        insert(spelling / relativePath);
}

void NodeSet::insertPlacesOfOthers(const HomeFolder& home) {
    for (const char* const folder : systemFolders)
        insert(folder);
    for (const fs::path& spelling : home.spellings()) {
        const fs::path trash = TrashFolders::ofHome(spelling);
        insert(trash);
        insert(resolveLinks(trash)); // the folder that holds it may be a link as well
    }
}

} // namespace tarnwell::SpaceSaverMeasuring
