#include "TarnwellCore/Actions/SyncedRoots.hpp"

#include "TarnwellCore/Platform/LetterCase.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>
#include <optional>
#include <system_error>
#include <unordered_set>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell::SyncedRoots {

namespace {

/// Hands out a path's names one by one, without copying them.
class Components {
public:
    explicit Components(std::string_view path) : rest_(path) {}

    std::optional<std::string_view> next() {
        const auto start = rest_.find_first_not_of('/');
        if (start == std::string_view::npos)
            return std::nullopt;
        rest_.remove_prefix(start);
        const std::string_view name = rest_.substr(0, rest_.find('/'));
        rest_.remove_prefix(name.size());
        return name;
    }

private:
    std::string_view rest_;
};

bool isAbsolute(std::string_view path) {
    return path.starts_with('/');
}

/// How a path and a root lie to one another.
enum class Relation { apart, pathInRoot, rootBelowPath };

Relation relation(std::string_view path, std::span<const std::string> components) {
    Components names(path);
    for (const std::string& component : components) {
        const auto name = names.next();
        if (!name)
            return Relation::rootBelowPath;
        if (*name != component)
            return Relation::apart;
    }
    return Relation::pathInRoot;
}

Relation relation(std::string_view path, const PreparedRoot& root) {
    if (isAbsolute(path) != root.isAbsolute || (root.components.empty() && !root.isAbsolute))
        return Relation::apart;
    const Relation asGiven = relation(path, root.components);
    if (asGiven == Relation::pathInRoot || root.resolvedComponents.empty())
        return asGiven;
    const Relation resolved = relation(path, root.resolvedComponents);
    return resolved == Relation::apart ? asGiven : resolved;
}

std::vector<std::string> componentsOf(std::string_view path) {
    std::vector<std::string> components;
    Components names(path);
    while (const auto name = names.next())
        if (*name != ".")
            components.emplace_back(*name);
    return components;
}

PreparedRoot prepared(const SyncedRoot& root) {
    PreparedRoot result{root, componentsOf(root.url.lexically_normal().native()),
                        isAbsolute(root.url.native())};
    if (result.isAbsolute && !result.components.empty())
        if (auto resolved = componentsOf(resolveLinks(root.url)); resolved != result.components)
            result.resolvedComponents = std::move(resolved);
    return result;
}

/// What is to be taken for a service's folder: "." and "..", hidden names and what is no single name are not.
bool isServiceFolderName(std::string_view name) {
    return !name.empty() && !name.starts_with('.') && name.find('/') == std::string_view::npos;
}

std::vector<std::string> realSubdirectoryNames(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code ignored;
        if (entry->symlink_status(ignored).type() == fs::file_type::directory)
            names.push_back(entry->path().filename().string());
    }
    return names;
}

} // namespace

std::vector<SyncedRoot>
discover(const fs::path& home, const std::function<bool(const fs::path&)>& fileExists,
         const std::function<std::vector<std::string>(const fs::path&)>& subdirectoryNames) {
    std::vector<SyncedRoot> roots;
    const fs::path drive = home / "Library" / "Mobile Documents" / "com~apple~CloudDocs" / "";
    if (fileExists(drive))
        roots.push_back({CloudProvider::iCloudDrive, drive});

    const fs::path storage = home / "Library" / "CloudStorage";
    std::vector<std::pair<std::string, std::string>> services; // lower-cased name, name
    std::unordered_set<std::string> seen;
    for (std::string& name : subdirectoryNames(storage))
        if (isServiceFolderName(name) && seen.insert(name).second)
            services.emplace_back(lowerCased(repairedUTF8(name)), std::move(name));
    // Names that differ only in case come in byte order, whatever order the folder listed them in.
    std::ranges::sort(services);
    for (const auto& [lower, name] : services)
        roots.push_back({cloudProviderOfFolder(name), storage / name / ""});
    return roots;
}

std::vector<SyncedRoot> discover(const fs::path& home) {
    const auto fileExists = [](const fs::path& path) {
        std::error_code ignored;
        return fs::exists(path, ignored);
    };
    return discover(home, fileExists, realSubdirectoryNames);
}

std::vector<PreparedRoot> prepare(std::span<const SyncedRoot> roots) {
    std::vector<PreparedRoot> result;
    result.reserve(roots.size());
    std::ranges::transform(roots, std::back_inserter(result), prepared);
    return result;
}

bool contains(std::string_view path, std::span<const SyncedRoot> roots) {
    return std::ranges::any_of(roots, [path](const SyncedRoot& root) {
        return relation(path, prepared(root)) == Relation::pathInRoot;
    });
}

const SyncedRoot* root(std::string_view containing, std::span<const PreparedRoot> prepared) {
    for (const PreparedRoot& candidate : prepared)
        if (relation(containing, candidate) == Relation::pathInRoot)
            return &candidate.root;
    return nullptr;
}

bool touches(std::string_view folder, std::span<const PreparedRoot> prepared) {
    return std::ranges::any_of(
        prepared, [folder](const PreparedRoot& root) { return relation(folder, root) != Relation::apart; });
}

} // namespace tarnwell::SyncedRoots
