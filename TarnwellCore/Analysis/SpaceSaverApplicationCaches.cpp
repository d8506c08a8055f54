// The caches that applications keep outside of the common caches folder.

#include "TarnwellCore/Analysis/SpaceSaverMeasuring.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"

#include <algorithm>
#include <array>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

using namespace SpaceSaverMeasuring;

namespace {

/// Relative to the home folder; "*" stands for every folder at its place. First what macOS applications
/// use, then what Linux ones do.
constexpr std::array cachePatterns{
    "Library/Containers/*/Data/Library/Caches",
    "Library/Group Containers/*/Library/Caches",
    "Library/Application Support/*/Cache",
    "Library/Application Support/*/Caches",
    "Library/Application Support/*/Code Cache",
    "Library/Application Support/*/GPUCache",
    "Library/Application Support/*/CachedData",
    "Library/Application Support/*/Service Worker/CacheStorage",
    ".cache/*",
    ".config/*/Cache",
    ".config/*/Code Cache",
    ".config/*/GPUCache",
    ".config/*/CachedData",
    ".config/*/Service Worker/CacheStorage",
    ".var/app/*/cache",
    "snap/*/common/.cache",
};

/// The folders directly in a folder, in byte order; none where it cannot be read. Links are not followed.
std::vector<fs::path> foldersIn(const fs::path& folder, const TreeLookup& lookup, const HomeFolder& home) {
    std::vector<fs::path> found;
    const FileNode* node = nodeAt(folder, lookup, home);
    if (node != nullptr && isWalked(*node)) {
        for (const FileNode* child : node->children())
            if (child->isDirectory())
                found.push_back(folder / child->name());
    } else {
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code unknown;
            if (fs::is_directory(entry->symlink_status(unknown)))
                found.push_back(entry->path());
        }
    }
    std::ranges::sort(found);
    return found;
}

/// Every place that the pattern may stand for; those without "*" at their end need not exist.
std::vector<fs::path> expand(const fs::path& homePath, const HomeFolder& home, std::string_view pattern,
                             const TreeLookup& lookup) {
    std::vector<fs::path> places{homePath};
    for (const fs::path& component : fs::path(pattern)) {
        std::vector<fs::path> next;
        for (const fs::path& place : places) {
            if (component != "*") {
                next.push_back(place / component);
                continue;
            }
            const std::vector<fs::path> folders = foldersIn(place, lookup, home);
            next.insert(next.end(), folders.begin(), folders.end());
        }
        places = std::move(next);
    }
    return places;
}

} // namespace

std::optional<SpaceSaverFinding>
SpaceSaverProbe::applicationCachesFinding(const DiskScanner& scanner, const ScanOptions& options,
                                          const TreeLookup& lookup, const CancellationToken& token) const {
    const HomeFolder bothHomes(home);
    const Measurer measurer{bothHomes, scanner, options, lookup, token};
    const fs::path homePath = bothHomes.spellings().empty() ? fs::path() : bothHomes.spellings().front();
    const auto isInCatalogue = [&](const fs::path& path) {
        return std::ranges::any_of(directoryRules(), [&](const DirectoryRule& rule) {
            return std::ranges::any_of(rule.relativePaths, [&](const std::string& relativePath) {
                const fs::path place = homePath / relativePath;
                return isWithin(path, place) || isWithin(place, path);
            });
        });
    };

    struct Cache {
        fs::path path;
        ItemSize size;
    };
    std::vector<Cache> caches;
    for (const char* const pattern : cachePatterns) {
        for (const fs::path& path : expand(homePath, bothHomes, pattern, lookup)) {
            if (isInCatalogue(path))
                continue;
            // One application's locked cache should not hide what is known of all others.
            const auto size = measurer.measure(path);
            if (size && size->isKnown && (size->size > 0 || size->allocatedSize > 0))
                caches.push_back({path, *size});
        }
    }
    std::ranges::stable_sort(caches,
                             [](const Cache& a, const Cache& b) { return a.size.size > b.size.size; });

    SpaceSaverFinding finding;
    for (const Cache& cache : caches)
        add(finding, cache.path, cache.size, 1);
    finding.id = "applicationCaches";
    finding.kind = SpaceSaverKind::userCaches;
    finding.title = "Application Caches";
    finding.subtitle =
        counted(finding.itemCount, "cache", "caches") + " that apps keep beside their own data";
    finding.explanation =
        "Apps fill these again as you use them. Quit your apps first: one that is running may "
        "lose what it is about to save.";
    finding.safety = CleanupSafety::reviewNeeded;
    finding.action = SpaceSaverActions::Trash{};
    finding.category = FileCategory::caches;
    if (!isWorthReporting(finding))
        return std::nullopt;
    return finding;
}

} // namespace tarnwell
