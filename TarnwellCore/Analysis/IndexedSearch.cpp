#include "TarnwellCore/Analysis/IndexedSearch.hpp"

#include "TarnwellCore/Analysis/SearchMatcher.hpp"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <unordered_map>

namespace tarnwell {

namespace {

SearchError cancelled() {
    return {SearchError::Kind::cancelled, "The search was cancelled."};
}

/// Without the folder's path in front and the "/" behind that; empty for what lies elsewhere.
std::string_view below(std::string_view folder, std::string_view path) {
    while (folder.ends_with('/'))
        folder.remove_suffix(1);
    return path.starts_with(folder) && path.substr(folder.size()).starts_with('/')
               ? path.substr(folder.size() + 1)
               : std::string_view();
}

/// Paths relative to the root, sorted, each once. The index names files without links on the way.
std::vector<std::string_view> relativePaths(const std::vector<std::string>& paths, const std::string& root) {
    std::error_code error;
    const std::string real = std::filesystem::canonical(root, error).string();
    std::vector<std::string_view> result;
    for (const std::string& path : paths) {
        std::string_view relative = below(root, path);
        if (relative.empty() && !error)
            relative = below(real, path);
        if (!relative.empty())
            result.push_back(relative);
    }
    std::ranges::sort(result);
    const auto repeated = std::ranges::unique(result);
    result.erase(repeated.begin(), repeated.end());
    return result;
}

} // namespace

std::expected<std::vector<const FileNode*>, SystemIndexFailure>
IndexedSearch::find(const FileNode& root, const std::string& expression, const SearchConditions& conditions,
                    const CancellationToken& token) const {
    SearchMatcher matcher(conditions);
    const auto paths =
        ask({.expression = expression, .folder = root.path()}, [&] { return token.isCancelled(); });
    if (!paths && paths.error().kind != SystemIndexFailure::Kind::cancelled)
        return std::unexpected(paths.error());
    if (!paths || token.isCancelled())
        throw cancelled();

    std::vector<const FileNode*> found;
    // Paths of one folder stand nearly one after another: its children are looked up by name.
    std::optional<std::string_view> folderPath;
    std::unordered_map<std::string_view, const FileNode*> children;
    for (const std::string_view path : relativePaths(*paths, root.path())) {
        if (token.isCancelled())
            throw cancelled();
        const std::size_t slash = path.rfind('/');
        const std::string_view parent = path.substr(0, slash == path.npos ? 0 : slash);
        if (parent != folderPath) {
            folderPath = parent;
            children.clear();
            if (const FileNode* folder = root.node(parent))
                for (const FileNode* child : folder->children())
                    children.emplace(child->name(), child);
        }
        const auto child = children.find(slash == path.npos ? path : path.substr(slash + 1));
        if (child != children.end() && matcher.matches(*child->second))
            found.push_back(child->second);
    }
    return found;
}

} // namespace tarnwell
