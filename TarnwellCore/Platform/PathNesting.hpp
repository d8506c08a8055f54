#pragma once

#include <string_view>

namespace tarnwell {

/// Whether a full path is the folder's or leads below it, compared as bytes. Neither ends in "/", but for the
/// root folder itself; the empty folder holds nothing.
inline bool isAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder == "/")
        return path.starts_with('/');
    return !folder.empty() && path.starts_with(folder) &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace tarnwell
