#pragma once

// Paths relative to the root of a scan: components joined by "/", empty for the root itself.

#include <string>
#include <string_view>

namespace tarnwell {

inline std::string joinedPath(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.empty() && !path.ends_with('/') && !name.empty())
        path += '/';
    path += name;
    return path;
}

inline std::string_view parentPath(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

/// What of a full path is left below a root; nothing of the root itself. The path lies at or below the root.
inline std::string_view relativePath(std::string_view path, std::string_view root) {
    if (path.size() <= root.size())
        return {};
    path.remove_prefix(root.size());
    while (path.starts_with('/'))
        path.remove_prefix(1);
    return path;
}

} // namespace tarnwell
